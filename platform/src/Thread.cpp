// CThread: one pthread per object, looping ThreadFuncImpl until Stop.
#include <pthread.h>
#include <string.h>

#include <atomic>
#include <system_error>

#include "Common.h"
#include "Log.h"

namespace {

struct ThreadState {
    Common::CThread* owner = nullptr;
    pthread_t tid{};
    bool started = false;  // touched only by the thread that calls Start/Stop
    std::atomic<bool> stop{false};
};

// The state of the CThread whose loop runs on this thread, if any.
thread_local ThreadState* t_running = nullptr;

void* RunThread(void* arg) {
    ThreadState* st = static_cast<ThreadState*>(arg);
    t_running = st;
    st->owner->PreBeginThread();
    while (!st->stop.load(std::memory_order_acquire)) st->owner->ThreadFuncImpl();
    st->owner->PostExitThread();
    return nullptr;
}

}  // namespace

namespace Common {

CThread::CThread() : m_impl(new ThreadState) { static_cast<ThreadState*>(m_impl)->owner = this; }

// By now the derived part is gone, so a thread still running would call into
// a destroyed object: say so loudly, then still join rather than leave the
// thread behind.
CThread::~CThread() {
    ThreadState* st = static_cast<ThreadState*>(m_impl);
    if (st->started) {
        Q7X_LOG(1, "thread destroyed while running; Stop() must come first\n");
        Stop();
    }
    delete st;
}

int CThread::PreBeginThread() { return 0; }

int CThread::PostExitThread() { return 0; }

int CThread::Start(int flags) {
    ThreadState* st = static_cast<ThreadState*>(m_impl);
    if (st->started) return -1;
    st->stop.store(false, std::memory_order_release);
    const int rc = pthread_create(&st->tid, nullptr, RunThread, st);
    if (rc != 0) {
        Q7X_LOG(1, "pthread_create failed: %s\n", std::generic_category().message(rc).c_str());
        return -1;
    }
    st->started = true;
    return 0;
}

// Returns once the thread has run PostExitThread and ended. From the thread
// itself it can only ask the loop to end (a thread cannot join itself).
int CThread::Stop() {
    ThreadState* st = static_cast<ThreadState*>(m_impl);
    st->stop.store(true, std::memory_order_release);
    if (t_running == st) return -1;
    if (!st->started) return 0;
    pthread_join(st->tid, nullptr);
    st->started = false;
    return 0;
}

}  // namespace Common
