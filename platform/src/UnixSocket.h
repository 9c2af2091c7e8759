// Small helpers around SOCK_SEQPACKET Unix-domain sockets, shared by the bus
// client, the broker and the host.
#ifndef Q7X_UNIX_SOCKET_H
#define Q7X_UNIX_SOCKET_H

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

namespace q7x {

// Fails for a path that does not fit sun_path (with its terminating NUL).
inline bool MakeAddress(const std::string& path, sockaddr_un* addr, socklen_t* len) {
    if (path.empty() || path.size() >= sizeof addr->sun_path) return false;
    memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    *len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

inline int NewSeqpacketSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// A connected non-blocking socket, or -1 with errno set.
inline int ConnectSeqpacket(const std::string& path) {
    sockaddr_un addr;
    socklen_t len;
    if (!MakeAddress(path, &addr, &len)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = NewSeqpacketSocket();
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), len) != 0) {
        const int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

// True when a broker accepts connections at path right now.
inline bool BrokerListening(const std::string& path) {
    const int fd = ConnectSeqpacket(path);
    if (fd < 0) return false;
    close(fd);
    return true;
}

}  // namespace q7x

#endif  // Q7X_UNIX_SOCKET_H
