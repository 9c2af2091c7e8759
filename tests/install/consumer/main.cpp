// q7x-ask ID [SECONDS]: asks request ID on the bus (Q7X_BUS_PATH) every
// 200 ms until its answer (ID | 0x8000) arrives, and prints the answer's
// payload length; exits 1 after SECONDS (default 60) without one. What a
// service built against the installed SDK does: a client, a callback, a wait.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "Common.h"

namespace {

class CAnswer {
public:
    void OnAnswer(const char* /*msg*/, int len) { m_length = len - int(sizeof(Common::SMessageHead)); }
    int m_length = -1;
};

long NowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: q7x-ask ID [SECONDS]\n");
        return 2;
    }
    const unsigned id = unsigned(strtoul(argv[1], nullptr, 0)) & 0x7fff;
    char* rest = nullptr;
    const long seconds = argc == 3 ? strtol(argv[2], &rest, 10) : 60;
    if (argc == 3 && (rest == argv[2] || *rest != '\0' || seconds <= 0)) {
        fprintf(stderr, "q7x-ask: '%s' is not a number of seconds\n", argv[2]);
        return 2;
    }
    const long end = NowMs() + 1000L * seconds;
    CAnswer answer;
    void* client = Common::Q7X_MSGCreateMessageClient(99, "/tmp/unix.domain", 0);
    if (Common::Q7X_MSGEventRegister(client, id | 0x8000,
                                     Common::Q7X_Bind(&answer, &CAnswer::OnAnswer))) {
        fprintf(stderr, "q7x-ask: cannot subscribe to %u\n", id | 0x8000);
        return 1;
    }
    while (answer.m_length < 0 && NowMs() < end) {
        Common::Q7X_MSGSendMessage(client, 0, id, 0, "", 0, 0);
        Common::Q7X_MSGWaitForEvent(client, 200);
    }
    if (answer.m_length < 0) {
        fprintf(stderr, "q7x-ask: no answer to %u\n", id);
        return 1;
    }
    printf("answered %u with %d bytes\n", id, answer.m_length);
    return 0;
}
