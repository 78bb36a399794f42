// The storage service's side of one connection, fed whatever a process of
// the device may send it: the input is every byte the peer writes before it
// stops. The service must answer with one well-formed reply (or, for a
// request cut short, none), never crash or leak, and never let a stranger
// (a user of no package) write, delete or read anything but the shared
// account document.
#include <package_manager_admin.h>
#include <ss_manager.h>
#include <ss_policy.h>
#include <ss_service.h>
#include <ss_store.h>
#include <ss_wire.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "sso_test_harness.h"

namespace {

std::unique_ptr<ssotest::PlatformRoot> g_root;
// The fuzzer runs as root, which the service trusts with everything; the
// policy is also asked about a stranger for each request.
const struct ss_policy kPolicy = {4242, 4243};
constexpr uid_t kStranger = 70500;

[[noreturn]] void Fail(const char *what, const std::string &detail = "")
{
    fprintf(stderr, "fuzz invariant broken: %s %s\n", what, detail.c_str());
    abort();
}

// The bytes the service answered, read until it closed its end.
std::string Drain(int fd)
{
    std::string out;
    char buf[4096];
    for (;;) {
        ssize_t n = recv(fd, buf, sizeof(buf), MSG_DONTWAIT);
        if (n <= 0)
            return out;
        out.append(buf, static_cast<size_t>(n));
    }
}

void CheckStrangerPolicy(const uint8_t *data, size_t size)
{
    struct ss_wire_request request;
    if (ss_wire_decode_request_header(data, size, &request) != SS_ERROR_NONE ||
        size < SS_WIRE_REQUEST_HEADER_LEN + request.item_len ||
        ss_wire_decode_item(data + SS_WIRE_REQUEST_HEADER_LEN, request.item_len, &request) !=
            SS_ERROR_NONE)
        return;
    int rc = ss_policy_check(&kPolicy, kStranger, request.op, request.item_id, nullptr);
    const bool reads = request.op == SS_WIRE_OP_READ || request.op == SS_WIRE_OP_VALIDATE;
    const bool shared = strcmp(request.item_id, SS_POLICY_SHARED_ITEM) == 0;
    if (rc == SS_ERROR_NONE && !(reads && shared))
        Fail("a stranger was let at", request.item_id);
    if (rc != SS_ERROR_NONE && reads && shared)
        Fail("a stranger was refused the shared document");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_root = std::make_unique<ssotest::PlatformRoot>();
    setenv("SSO_PLATFORM_LOG", "file:/dev/null", 1);
    if (ss_store_prepare() != SS_ERROR_NONE)
        Fail("no store");
    const char *apps[] = {"org.example.fuzz.tv"};
    package_manager_add_package_as("org.example.fuzz", apps, 1, nullptr, 0, 70001, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    CheckStrangerPolicy(data, size);
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0)
        Fail("socketpair");
    // Everything the peer says, then the end of it: the service never waits.
    if (size > 0 && send(sv[0], data, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
        Fail("the input does not fit the socket");
    shutdown(sv[0], SHUT_WR);
    int rc = ss_service_handle(sv[1], &kPolicy);
    close(sv[1]);
    std::string reply = Drain(sv[0]);
    close(sv[0]);

    if (reply.empty()) {
        if (rc != SS_ERROR_SERVICE_UNAVAILABLE)
            Fail("no answer, yet a status", std::to_string(rc));
        return 0;
    }
    int32_t status = 0;
    uint32_t len = 0;
    if (ss_wire_decode_reply_header(reinterpret_cast<const unsigned char *>(reply.data()),
                                    reply.size(), &status, &len) != SS_ERROR_NONE)
        Fail("a garbled answer");
    if (reply.size() != SS_WIRE_REPLY_HEADER_LEN + len)
        Fail("an answer of another length than it says");
    if (status != rc)
        Fail("answered one status, returned another");
    return 0;
}
