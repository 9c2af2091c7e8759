// A plug-in the size of a test: what the host must be able to load, run and
// destroy. Its worker thread waits on the bus the way a service does and
// answers pings (0x0503); destroyed, it says goodbye (0x0502).
#include <string>

#include "Common.h"

namespace {

class CTestService : public CServiceBase, public Common::CThread {
public:
    CTestService() : m_client(Common::Q7X_MSGCreateMessageClient(31, "/tmp/unix.domain", 0)) {
        Common::Q7X_MSGEventRegister(m_client, 0x0503,
                                     Common::Q7X_Bind(this, &CTestService::OnPing));
        Start(0);
    }
    // Like a service: unsubscribe and say goodbye while the worker still
    // waits on the bus, then stop the worker.
    ~CTestService() override {
        Common::Q7X_MSGEventUnRegister(m_client, 0x0503);
        Common::Q7X_MSGSendMessage(m_client, 0, 0x0502, 0, "stopped", 7, 0);
        Stop();
    }
    int ThreadFuncImpl() override {
        Common::Q7X_MSGWaitForEvent(m_client, 100);
        return 0;
    }

private:
    void OnPing(const char* msg, int len) {
        const std::string answer = "pong:" + std::string(msg + 16, static_cast<size_t>(len - 16));
        Common::Q7X_MSGResponseMessage(m_client, msg, answer.data(),
                                       static_cast<int>(answer.size()));
    }
    void* m_client;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) CServiceBase* Create() {
    return new CTestService;
}
