// Wire records of the signal messages, each declared once with its bytes.
//
// Offsets count from the first payload byte behind the 16-byte head. All
// multi-byte fields are little-endian and are read through ByteOrder.h at the
// named offsets; no struct is ever laid over received bytes. Each record's
// read() takes a payload the caller has checked to hold at least kSize bytes
// (kRowSize for table rows). Bytes not named here are reserved: the service
// does not look at them.
#ifndef ALERTZEL_SIGNALRECORDS_H
#define ALERTZEL_SIGNALRECORDS_H

#include <stddef.h>
#include <stdint.h>

#include "ByteOrder.h"

// Input state, messages 33800 and 1031; exactly 4 bytes.
// | Offset | Width | Field     | Meaning                                     |
// |--------|-------|-----------|---------------------------------------------|
// | 0      | u32   | uiIoState | bit i (0..15) is input i; 16..31 kept only  |
struct IoStateMsg_t {
    static constexpr uint32_t kSize = 4;
    static constexpr size_t kIoState = 0;

    uint32_t uiIoState;

    static IoStateMsg_t read(const uint8_t* p) { return IoStateMsg_t{zel::getLe32(p, kIoState)}; }
};

// Panic key, message 1176; exactly 4 bytes.
// | Offset | Width | Field      | Meaning                                    |
// |--------|-------|------------|--------------------------------------------|
// | 0      | u8    | ucKeyState | 0x30, 0x31 pressed; 0x32 released          |
// | 1      | u8    | ucKeyFlags | bit 0 set: the record counts               |
// | 2      | 2     | reserved   |                                            |
struct PanicKeyMsg_t {
    static constexpr uint32_t kSize = 4;
    static constexpr size_t kKeyState = 0;
    static constexpr size_t kKeyFlags = 1;
    static constexpr uint8_t kFlagCounts = 0x01;

    uint8_t ucKeyState;
    uint8_t ucKeyFlags;

    static PanicKeyMsg_t read(const uint8_t* p) {
        return PanicKeyMsg_t{zel::getU8(p, kKeyState), zel::getU8(p, kKeyFlags)};
    }
};

// Accelerometer, message 1071; exactly 40 bytes.
// | Offset | Width | Field    | Meaning                |
// |--------|-------|----------|------------------------|
// | 0      | 6     | reserved |                        |
// | 6      | u16   | usAccX   | raw value of AccelX    |
// | 8      | u16   | usAccY   | raw value of AccelY    |
// | 10     | u16   | usAccZ   | raw value of AccelZ    |
// | 12     | 28    | reserved |                        |
// A raw value with bit 15 clear reads r >> 8 (whole units); with bit 15 set
// it reads (r & 0x7fff) / 256. Bit 15 selects the form, it is not a sign.
struct AccDataMsg_t {
    static constexpr uint32_t kSize = 40;
    static constexpr size_t kAccX = 6;
    static constexpr size_t kAccY = 8;
    static constexpr size_t kAccZ = 10;

    uint16_t usAcc[3];  // X, Y, Z

    static AccDataMsg_t read(const uint8_t* p) {
        return AccDataMsg_t{
            {zel::getLe16(p, kAccX), zel::getLe16(p, kAccY), zel::getLe16(p, kAccZ)}};
    }
};

// GPS state, message 1073; 52 bytes or more, of which the first 52 are kept.
// | Offset | Width | Field      | Meaning                         |
// |--------|-------|------------|---------------------------------|
// | 0      | 8     | reserved   |                                 |
// | 8      | u8    | ucGpsState | value of the event GPS          |
// | 9      | 43    | reserved   |                                 |
struct GpsInfoMsg_t {
    static constexpr uint32_t kSize = 52;
    static constexpr size_t kGpsState = 8;
};

// Speed, message 6777; exactly 12 bytes.
// | Offset | Width | Field       | Meaning                                   |
// |--------|-------|-------------|-------------------------------------------|
// | 0      | u8    | uiSpeedUnit | bit 0: 0 = km/h, 1 = mph; others reserved |
// | 1      | 3     | reserved    |                                           |
// | 4      | u32   | uiCurSpeed  | speed, whole units                        |
// | 8      | 4     | reserved    |                                           |
struct SpeedInfoMsg_t {
    static constexpr uint32_t kSize = 12;
    static constexpr size_t kSpeedUnit = 0;
    static constexpr size_t kCurSpeed = 4;

    uint8_t uiSpeedUnit;  // bit 0 only
    uint32_t uiCurSpeed;

    static SpeedInfoMsg_t read(const uint8_t* p) {
        return SpeedInfoMsg_t{static_cast<uint8_t>(zel::getU8(p, kSpeedUnit) & 1u),
                              zel::getLe32(p, kCurSpeed)};
    }
};

// Vehicle information, message 1081; exactly 64 bytes.
// | Offset | Width | Field         | Meaning                                         |
// |--------|-------|---------------|-------------------------------------------------|
// | 0      | u32   | uiVehicleMask | bit 0 temperatures, 1 voltage, 3 status         |
// | 4      | u16   | usTempMask    | bit 0 system temp present, 1 disk temp present  |
// | 6      | 6     | reserved      |                                                 |
// | 12     | s16   | sSysTempInt   | system temperature, whole part                  |
// | 14     | s16   | sSysTempDec   | system temperature, hundredths                  |
// | 16     | 4     | reserved      |                                                 |
// | 20     | s16   | sDiskTempInt  | disk temperature, whole part                    |
// | 22     | s16   | sDiskTempDec  | disk temperature, hundredths                    |
// | 24     | u32   | uiVoltMask    | bit 0 voltage present                           |
// | 28     | u8    | ucVoltInt     | system voltage, whole part                      |
// | 29     | u8    | ucVoltDec     | system voltage, hundredths                      |
// | 30     | 18    | reserved      |                                                 |
// | 48     | u32   | uiStatusMask  | bit 0 ignition present, 3 disk status present   |
// | 52     | u8    | ucStatus      | bit 0 ignition on; bits 3, 4 disk status        |
// | 53     | 11    | reserved      |                                                 |
struct VehicleInfoMsg_t {
    static constexpr uint32_t kSize = 64;
    static constexpr size_t kVehicleMask = 0;
    static constexpr size_t kTempMask = 4;
    static constexpr size_t kSysTempInt = 12;
    static constexpr size_t kSysTempDec = 14;
    static constexpr size_t kDiskTempInt = 20;
    static constexpr size_t kDiskTempDec = 22;
    static constexpr size_t kVoltMask = 24;
    static constexpr size_t kVoltInt = 28;
    static constexpr size_t kVoltDec = 29;
    static constexpr size_t kStatusMask = 48;
    static constexpr size_t kStatus = 52;

    static constexpr uint32_t kHasTemps = 1u << 0;      // uiVehicleMask
    static constexpr uint32_t kHasVolt = 1u << 1;       // uiVehicleMask
    static constexpr uint32_t kHasStatus = 1u << 3;     // uiVehicleMask
    static constexpr uint16_t kSysTempPresent = 1u << 0;   // usTempMask
    static constexpr uint16_t kDiskTempPresent = 1u << 1;  // usTempMask
    static constexpr uint32_t kVoltPresent = 1u << 0;      // uiVoltMask
    static constexpr uint32_t kIgnitionPresent = 1u << 0;  // uiStatusMask
    static constexpr uint32_t kDiskStatusPresent = 1u << 3;  // uiStatusMask
    static constexpr uint8_t kIgnitionOn = 0x01;        // ucStatus
    static constexpr uint8_t kDiskStatusBits = 0x18;    // ucStatus

    uint32_t uiVehicleMask;
    uint16_t usTempMask;
    int16_t sSysTempInt;
    int16_t sSysTempDec;
    int16_t sDiskTempInt;
    int16_t sDiskTempDec;
    uint32_t uiVoltMask;
    uint8_t ucVoltInt;
    uint8_t ucVoltDec;
    uint32_t uiStatusMask;
    uint8_t ucStatus;

    static VehicleInfoMsg_t read(const uint8_t* p) {
        VehicleInfoMsg_t r;
        r.uiVehicleMask = zel::getLe32(p, kVehicleMask);
        r.usTempMask = zel::getLe16(p, kTempMask);
        r.sSysTempInt = static_cast<int16_t>(zel::getLe16(p, kSysTempInt));
        r.sSysTempDec = static_cast<int16_t>(zel::getLe16(p, kSysTempDec));
        r.sDiskTempInt = static_cast<int16_t>(zel::getLe16(p, kDiskTempInt));
        r.sDiskTempDec = static_cast<int16_t>(zel::getLe16(p, kDiskTempDec));
        r.uiVoltMask = zel::getLe32(p, kVoltMask);
        r.ucVoltInt = zel::getU8(p, kVoltInt);
        r.ucVoltDec = zel::getU8(p, kVoltDec);
        r.uiStatusMask = zel::getLe32(p, kStatusMask);
        r.ucStatus = zel::getU8(p, kStatus);
        return r;
    }
};

// Plate reader and radar, message 8963; exactly 16 bytes.
// | Offset | Width | Field      | Meaning                                  |
// |--------|-------|------------|------------------------------------------|
// | 0      | 8     | reserved   |                                          |
// | 8      | u8    | ucAlprMask | bit i (0..4): value i present            |
// | 9      | 5×u8  | values     | ALPR_status, ALPR_radarL1..ALPR_radarL4  |
// | 14     | 2     | reserved   |                                          |
struct AlprEventMsg_t {
    static constexpr uint32_t kSize = 16;
    static constexpr size_t kAlprMask = 8;
    static constexpr size_t kValues = 9;
    static constexpr int kValueCount = 5;

    uint8_t ucAlprMask;
    uint8_t ucValue[kValueCount];

    static AlprEventMsg_t read(const uint8_t* p) {
        AlprEventMsg_t r;
        r.ucAlprMask = zel::getU8(p, kAlprMask);
        for (int i = 0; i < kValueCount; ++i) r.ucValue[i] = zel::getU8(p, kValues + i);
        return r;
    }
};

// Motion state of 16 channels, messages 34057 and 1288; exactly 48 bytes.
// | Offset | Width | Field      | Meaning                                      |
// |--------|-------|------------|----------------------------------------------|
// | 0      | 16×u8 | ucMdTag    | per channel: must match the channel's tag    |
// | 16     | 16    | reserved   |                                              |
// | 32     | 16×u8 | ucMdStatus | per channel: 1 = motion, else no motion      |
struct MdStateMsg_t {
    static constexpr uint32_t kSize = 48;
    static constexpr size_t kMdTag = 0;
    static constexpr size_t kMdStatus = 32;
    static constexpr int kChannels = 16;

    static uint8_t mdTag(const uint8_t* p, int ch) { return zel::getU8(p, kMdTag + ch); }
    static uint8_t mdStatus(const uint8_t* p, int ch) { return zel::getU8(p, kMdStatus + ch); }
};

// Camera settings, messages 33087 and 320; exactly 3208 bytes: 8 reserved
// bytes, then 16 rows of 200 bytes, row i for channel i.
// | Offset in row | Offset in block | Width | Field     | Meaning                  |
// |---------------|-----------------|-------|-----------|--------------------------|
// | 0             | 8 + 200 × i     | u8    | ucChnKind | 0 video input, 1 digital |
// | 6             | 14 + 200 × i    | u8    | ucChnTag  | tag a digital channel's  |
// |               |                 |       |           | motion entry must carry  |
struct IpcSetting_t {
    static constexpr uint32_t kSize = 3208;
    static constexpr size_t kRows = 8;
    static constexpr size_t kRowSize = 200;
    static constexpr size_t kChnKind = 0;
    static constexpr size_t kChnTag = 6;
    static constexpr uint8_t kVideoInput = 0;
    static constexpr uint8_t kDigital = 1;

    static uint8_t chnKind(const uint8_t* p, int ch) {
        return zel::getU8(p, kRows + kRowSize * ch + kChnKind);
    }
    static uint8_t chnTag(const uint8_t* p, int ch) {
        return zel::getU8(p, kRows + kRowSize * ch + kChnTag);
    }
};

// One row of the J1939 parameter table, messages 33243 and 476. The table is
// exactly 6048 bytes: 64 rows of 84 bytes, then 672 bytes kept but never read.
// Doubles are IEEE 754 at 4-byte alignment, so a row stays 84 bytes.
// | Offset | Width  | Field      | Meaning                                   |
// |--------|--------|------------|-------------------------------------------|
// | 0      | u32    | id         | signal number; below 64 for the row to count |
// | 4      | s32    | length     | width in bits; not 0 for the row to count |
// | 8      | u32    | max        | printed only                              |
// | 12     | u32    | pgn        | group to match; not 0 for the row to count |
// | 16     | u32    | source     | printed only; frames are not matched on it |
// | 20     | 4      | reserved   |                                           |
// | 24     | u32    | startbit   | first bit within the start byte           |
// | 28     | u32    | startbyte  | first byte of the data field              |
// | 32     | 4      | reserved   |                                           |
// | 36     | double | offset     | added after scaling                       |
// | 44     | double | resolution | scale factor                              |
// | 52     | 32     | reserved   |                                           |
struct J1939Param_t {
    static constexpr uint32_t kTableSize = 6048;
    static constexpr uint32_t kRowSize = 84;
    static constexpr int kRowCount = 64;
    static constexpr size_t kId = 0;
    static constexpr size_t kLength = 4;
    static constexpr size_t kMax = 8;
    static constexpr size_t kPgn = 12;
    static constexpr size_t kSource = 16;
    static constexpr size_t kStartBit = 24;
    static constexpr size_t kStartByte = 28;
    static constexpr size_t kOffset = 36;
    static constexpr size_t kResolution = 44;

    uint32_t id;
    int32_t length;
    uint32_t max;
    uint32_t pgn;
    uint32_t source;
    uint32_t startbit;
    uint32_t startbyte;
    double offset;
    double resolution;

    // Row `row` (0..63) of a whole table.
    static J1939Param_t read(const uint8_t* table, int row) {
        const uint8_t* p = table + static_cast<size_t>(kRowSize) * row;
        J1939Param_t r;
        r.id = zel::getLe32(p, kId);
        r.length = static_cast<int32_t>(zel::getLe32(p, kLength));
        r.max = zel::getLe32(p, kMax);
        r.pgn = zel::getLe32(p, kPgn);
        r.source = zel::getLe32(p, kSource);
        r.startbit = zel::getLe32(p, kStartBit);
        r.startbyte = zel::getLe32(p, kStartByte);
        r.offset = zel::getLeDouble(p, kOffset);
        r.resolution = zel::getLeDouble(p, kResolution);
        return r;
    }
    // Rows that fail this are neither printed nor matched; a pgn of 0 marks
    // an empty row.
    bool counts() const { return id < 64 && length != 0 && pgn != 0; }
};

// One raw CAN frame, message 1089: 28 bytes are read, any more are ignored.
// | Offset | Width | Field      | Meaning                                      |
// |--------|-------|------------|----------------------------------------------|
// | 0      | 12    | reserved   |                                              |
// | 12     | u32   | uiCanId    | CAN identifier                               |
// | 16     | 4     | reserved   |                                              |
// | 20     | u64   | ullCanData | data field, data byte 0 in bits 0..7         |
struct CanFrameMsg_t {
    static constexpr uint32_t kSize = 28;
    static constexpr size_t kCanId = 12;
    static constexpr size_t kCanData = 20;

    uint32_t uiCanId;
    uint64_t ullCanData;

    static CanFrameMsg_t read(const uint8_t* p) {
        return CanFrameMsg_t{zel::getLe32(p, kCanId), zel::getLe64(p, kCanData)};
    }
    // Parameter group: bits 8..23 of the identifier. Priority, data page and
    // source play no part; a destination address stays in the group.
    uint32_t pgn() const { return (uiCanId >> 8) & 0xffffu; }
};

#endif  // ALERTZEL_SIGNALRECORDS_H
