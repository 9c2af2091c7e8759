// State of the in-process platform behind the harness.
#ifndef ALERTZEL_TEST_FAKEPLATFORM_H
#define ALERTZEL_TEST_FAKEPLATFORM_H

#include <list>
#include <map>

#include "Harness.h"

namespace harness {

struct Queued {
    unsigned int id;
    int64_t dueUs;
    Bytes bytes;  // head and payload
};

struct FakeState {
    std::map<unsigned int, Common::CMsgCallback*> callbacks;
    std::vector<unsigned int> registerLog;  // ids in order of registration
    std::list<Queued> queue;
    std::vector<SentMessage> sent;
    std::vector<DebugLine> lines;
    std::map<unsigned int, Responder> responders;
    int64_t nowUs = 0;
    long timeOnlyOffsetS = 0;
    long deviceOffsetS = 0;
    unsigned char timeFlag = 0;
    int video = 4;
    int digital = 4;
    uint32_t session = 0;
    bool verbose = false;
    Common::CThread* thread = nullptr;
    bool threadStarted = false;

    ~FakeState() {
        for (const auto& entry : callbacks) delete entry.second;
    }
};

FakeState& state();
// Lines above it are dropped. Outside FakeState so that a dropped line costs
// one comparison.
extern int g_captureLevel;
void resetState();
Bytes makeMessage(unsigned int id, uint32_t claimedLength, const Bytes& payload);
void dispatch(const Queued& q);

}  // namespace harness

#endif
