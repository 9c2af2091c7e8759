#include "PeerUtil.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace peer {

void say(const char* who, const char* fmt, ...) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tm;
    localtime_r(&tv.tv_sec, &tm);
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    printf("%02d:%02d:%02d.%03d %s: %s\n", tm.tm_hour, tm.tm_min, tm.tm_sec,
           static_cast<int>(tv.tv_usec / 1000), who, text);
    fflush(stdout);
}

double monotonicSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

std::string busPath(const char* given) {
    const char* env = getenv("Q7X_BUS_PATH");
    return env != nullptr && *env != '\0' ? env : given;
}

bool brokerListening(const std::string& path) {
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof addr.sun_path) return false;
    memcpy(addr.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const bool ok = connect(fd, reinterpret_cast<const struct sockaddr*>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

void noteMissingBroker(const char* who) {
    const std::string path = busPath();
    if (!brokerListening(path)) say(who, "no broker at %s yet; waiting for one", path.c_str());
}

}  // namespace peer
