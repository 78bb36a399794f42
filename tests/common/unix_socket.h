// Unix sockets that tests bind and connect in place of a daemon or a client.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace ssotest {

// The address of the socket at path; a leading '@' names an abstract socket.
// *length is the length to pass with it; 0 when path does not fit.
inline sockaddr_un UnixAddress(const std::string &path, socklen_t *length)
{
    sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    *length = 0;
    if (path.empty() || path.size() >= sizeof(addr.sun_path))
        return addr;
    memcpy(addr.sun_path, path.c_str(), path.size());
    if (path[0] == '@')
        addr.sun_path[0] = '\0';
    *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() +
                                     (path[0] == '@' ? 0 : 1));
    return addr;
}

// A socket of type (SOCK_STREAM, SOCK_DGRAM) bound at path, whatever file was
// there removed first; -1 when it cannot be made.
inline int BindUnixSocket(int type, const std::string &path)
{
    socklen_t length;
    sockaddr_un addr = UnixAddress(path, &length);
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0 || length == 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    if (path[0] != '@')
        unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), length) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// A stream socket connected to path; -1 when nobody listens there.
inline int ConnectUnixSocket(const std::string &path)
{
    socklen_t length;
    sockaddr_un addr = UnixAddress(path, &length);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || length == 0 || connect(fd, reinterpret_cast<sockaddr *>(&addr), length) != 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

} // namespace ssotest
