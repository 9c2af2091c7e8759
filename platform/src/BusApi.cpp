// The Q7X_MSG* functions of Common.h over CBusClient.
#include <mutex>
#include <vector>

#include "BusClient.h"
#include "BusProtocol.h"
#include "Common.h"

namespace {

q7x::CBusClient* AsClient(void* client) { return static_cast<q7x::CBusClient*>(client); }

// The API has no way to destroy a client: clients live as long as the
// process. Keeping them listed here says so to leak checkers too.
std::mutex g_clientsMu;
std::vector<q7x::CBusClient*>* g_clients = new std::vector<q7x::CBusClient*>;

}  // namespace

namespace Common {

void* Q7X_MSGCreateMessageClient(int appId, const char* path, int flags) {
    auto* client = new q7x::CBusClient(appId, q7x::ResolveBusPath(path));
    std::lock_guard<std::mutex> lock(g_clientsMu);
    g_clients->push_back(client);
    return client;
}

int Q7X_MSGEventRegister(void* client, unsigned int msgId, void* callback) {
    CMsgCallback* cb = static_cast<CMsgCallback*>(callback);
    if (!client) {
        delete cb;
        return -1;
    }
    return AsClient(client)->Register(msgId, cb);
}

int Q7X_MSGEventUnRegister(void* client, unsigned int msgId) {
    return client ? AsClient(client)->Unregister(msgId) : -1;
}

int Q7X_MSGWaitForEvent(void* client, int timeoutMs) {
    return client ? AsClient(client)->Wait(timeoutMs) : -1;
}

// dest and reserved are unused: the broker routes by message id.
int Q7X_MSGSendMessage(void* client, int dest, unsigned int msgId, int flag,
                       const void* payload, int len, int reserved) {
    return client ? AsClient(client)->Send(msgId, flag != 0, payload, len) : -1;
}

int Q7X_MSGResponseMessage(void* client, const void* requestHead, const void* payload,
                           int len) {
    return client ? AsClient(client)->Respond(requestHead, payload, len) : -1;
}

}  // namespace Common
