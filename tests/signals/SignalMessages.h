// Payloads of the signal messages, built byte by byte at the offsets the
// senders use, and a snapshot of everything a signal handler may change.
//
// The builders write their own offsets rather than the service's record
// constants, so a wrong offset in the service shows up as a failing test.
#ifndef ALERTZEL_TEST_SIGNALMESSAGES_H
#define ALERTZEL_TEST_SIGNALMESSAGES_H

#include <stdint.h>

#include <string>
#include <vector>

#include "ServiceFixture.h"

namespace sig {

using harness::Bytes;

Bytes ioState(uint32_t word);
Bytes panicKey(uint8_t state, uint8_t flags);
Bytes accData(uint16_t x, uint16_t y, uint16_t z);
// `size` bytes, byte i holding i, then the state at offset 8.
Bytes gpsInfo(uint8_t state, size_t size = 52);
Bytes speedInfo(uint8_t unit, uint32_t speed);

// Fields in record order, for brace initialisation.
struct Vehicle {
    uint32_t vehicleMask = 0;
    uint16_t tempMask = 0;
    int16_t sysInt = 0, sysDec = 0;
    int16_t diskInt = 0, diskDec = 0;
    uint32_t voltMask = 0;
    uint8_t voltInt = 0, voltDec = 0;
    uint32_t statusMask = 0;
    uint8_t status = 0;
};
Bytes vehicleInfo(const Vehicle& v);
Bytes alprEvent(uint8_t mask, std::vector<uint8_t> values = {0, 0, 0, 0, 0});

// Motion: per channel tag and status; channels not given are 0.
Bytes mdState(std::vector<uint8_t> tags, std::vector<uint8_t> status);
// Camera settings: per channel kind and tag; channels not given are 0.
Bytes ipcSetting(std::vector<uint8_t> kinds, std::vector<uint8_t> tags = {});

struct J1939Row {
    uint32_t id;
    int32_t length;
    uint32_t pgn;
    uint32_t startbyte;
    uint32_t startbit;
    double resolution;
    double offset;
    uint32_t max = 0;
    uint32_t source = 0;
};
// The 6048-byte table with `rows` at rows 0, 1, ...; `at` places them
// elsewhere (same size as rows).
Bytes j1939Table(const std::vector<J1939Row>& rows, std::vector<int> at = {});
Bytes canFrame(uint32_t canId, uint64_t data);

// Every field a signal handler may write, as bytes.
Bytes snapshot(CAlertZelManage& s);

// Accepted messages of every kind with non-zero values, so that a refusal
// that wrongly clears or writes something shows.
void primeEverySignal(harness::Harness& h);

}  // namespace sig

#endif
