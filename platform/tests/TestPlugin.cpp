// A plug-in the size of a test: what the host must be able to load, run and
// destroy. It announces its start and its end on the bus and answers pings
// from its worker thread, which waits on the bus the way a service does.
#include <string.h>

#include <string>

#include "Common.h"

namespace {

constexpr unsigned kStarted = 0x0501;
constexpr unsigned kStopped = 0x0502;
constexpr unsigned kPing = 0x0503;

class CTestService : public CServiceBase, public Common::CThread {
public:
    CTestService() : m_client(Common::Q7X_MSGCreateMessageClient(31, "/tmp/unix.domain", 0)) {
        Common::Q7X_MSGEventRegister(m_client, kPing, Common::Q7X_Bind(this, &CTestService::OnPing));
        Start(0);
        Announce(kStarted, "started");
    }

    // Like a service: unsubscribe and say goodbye while the worker still
    // waits on the bus, then stop the worker.
    ~CTestService() override {
        Common::Q7X_MSGEventUnRegister(m_client, kPing);
        Announce(kStopped, "stopped");
        Stop();
    }

    int ThreadFuncImpl() override {
        Common::Q7X_MSGWaitForEvent(m_client, 100);
        return 0;
    }

private:
    void OnPing(const char* msg, int len) {
        const std::string answer = "pong:" + std::string(msg + 16, static_cast<size_t>(len - 16));
        Common::Q7X_MSGResponseMessage(m_client, msg, answer.data(), static_cast<int>(answer.size()));
    }

    void Announce(unsigned id, const char* text) {
        Common::Q7X_MSGSendMessage(m_client, 0, id, 0, text, static_cast<int>(strlen(text)), 0);
    }

    void* m_client;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) CServiceBase* Create() {
    return new CTestService;
}
