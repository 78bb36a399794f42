// The storage service as the other processes of the device meet it: who may
// read and write which item (decided by the user id the kernel reports, as
// processes of other users find out), what those users can reach on disk,
// and what a client gets from a missing, hung, garbled or busy service, or a
// service fed malformed requests. Tests that play other users run as root
// and skip otherwise.
#include <package_manager_admin.h>
#include <signal.h>
#include <ss_manager.h>
#include <ss_wire.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <functional>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "sso_test_harness.h"
#include "storage_test_util.h"
#include "unix_socket.h"

namespace {

using sstest::ModeOf;
using sstest::ReadWholeFile;
using sstest::WriteWholeFile;

using Clock = std::chrono::steady_clock;

constexpr uid_t kUidA = 70001; // package org.example.a
constexpr uid_t kUidB = 70002; // package org.example.b
constexpr uid_t kStranger = 70500;
const char kItemA[] = "SSO_PUBLICDATA_ID_org.example.a";
const char kItemB[] = "SSO_PUBLICDATA_ID_org.example.b";
const char kShared[] = "SSO_PUBLICDATA_ID";

ss_credential_t Credential()
{
    return sstest::Credential(0x53534F41u, 0x5f0a93c2d1e84b7aull, 0xa6e2c90b3f17d845ull);
}

int Write(const std::string &id, const std::string &data)
{
    ss_credential_t c = Credential();
    return ss_write(id.c_str(), reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                    &c, 0);
}

struct ReadResult {
    int rc = 1;
    std::string data;
};

ReadResult Read(const std::string &id)
{
    ss_credential_t c = Credential();
    ReadResult r;
    unsigned char sentinel = 0;
    unsigned char *buffer = &sentinel;
    size_t length = 7;
    r.rc = ss_read(&buffer, &length, nullptr, nullptr, id.c_str(), &c, SS_FLAG_READ);
    if (r.rc == SS_ERROR_NONE) {
        r.data.assign(reinterpret_cast<char *>(buffer), length);
        ss_free_buffer(buffer);
    } else if (buffer != &sentinel || length != 7) {
        r.rc = 99; // a failure touched the out arguments
    }
    return r;
}

ssotest::Identity User(uid_t uid)
{
    return {uid, uid, {}};
}

// Runs fn as the user; its status is fn's result.
int As(uid_t uid, const std::function<int()> &fn)
{
    ssotest::ChildProcess child = ssotest::ForkAs(User(uid), fn);
    return child.Wait(std::chrono::seconds(30));
}

// A connection to the service's socket, for requests the client library would
// never send.
int Connect(const std::string &root)
{
    int fd = ssotest::ConnectUnixSocket(root + "/secure-storage/socket");
    if (fd < 0)
        return -1;
    struct timeval tv = {10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    return fd;
}

std::string Header(uint32_t op, uint32_t flags, uint32_t item_len, uint32_t data_len,
                   uint32_t magic = SS_WIRE_REQUEST_MAGIC)
{
    ss_wire_request r;
    memset(&r, 0, sizeof(r));
    r.op = op;
    r.flags = flags;
    r.module_id = 0x53534F41u;
    r.item_len = item_len;
    r.data_len = data_len;
    unsigned char out[SS_WIRE_REQUEST_HEADER_LEN];
    ss_wire_encode_request_header(&r, out);
    out[0] = static_cast<unsigned char>(magic >> 24);
    out[1] = static_cast<unsigned char>(magic >> 16);
    out[2] = static_cast<unsigned char>(magic >> 8);
    out[3] = static_cast<unsigned char>(magic);
    return std::string(reinterpret_cast<char *>(out), sizeof(out));
}

// Sends bytes and reads the status the service answers; 1 when no whole
// answer came.
int RawStatus(const std::string &root, const std::string &bytes)
{
    int fd = Connect(root);
    if (fd < 0)
        return 2;
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    // Nothing more comes: a service that waits for more sees the end at once.
    shutdown(fd, SHUT_WR);
    unsigned char reply[SS_WIRE_REPLY_HEADER_LEN];
    size_t got = 0;
    while (got < sizeof(reply)) {
        ssize_t n = recv(fd, reply + got, sizeof(reply) - got, 0);
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    close(fd);
    int32_t status = 0;
    uint32_t len = 0;
    if (got != sizeof(reply) ||
        ss_wire_decode_reply_header(reply, sizeof(reply), &status, &len) != SS_ERROR_NONE)
        return 1;
    return status;
}

int AddPackage(const std::string &id, uid_t uid)
{
    std::string app = id + ".app";
    const char *apps[] = {app.c_str()};
    return package_manager_add_package_as(id.c_str(), apps, 1, nullptr, 0, uid, nullptr);
}

class StorageService : public ssotest::StorageTest {
protected:
    std::string Socket() const { return StoreDir() + "/socket"; }
};

// Two packages of two users, each with its data, and the shared document.
class StorageAccess : public StorageService {
protected:
    void SetUp() override
    {
        if (!ssotest::CanSwitchUsers())
            GTEST_SKIP() << "playing other users needs root";
        StorageService::SetUp();
        ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddPackage("org.example.a", kUidA));
        ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddPackage("org.example.b", kUidB));
        ASSERT_EQ(SS_ERROR_NONE, Write(kShared, "the account document"));
        ASSERT_EQ(SS_ERROR_NONE, Write(kItemA, "token of a"));
        ASSERT_EQ(SS_ERROR_NONE, Write(kItemB, "token of b"));
    }
};

// ------------------------------------------------------------ who reads what

TEST_F(StorageAccess, EveryUserReadsTheSharedAccountDocument)
{
    for (uid_t uid : {kUidA, kUidB, kStranger})
        EXPECT_EQ(0, As(uid,
                        [] {
                            ReadResult r = Read(kShared);
                            ss_credential_t c = Credential();
                            return r.rc == SS_ERROR_NONE && r.data == "the account document" &&
                                           ss_validate(kShared, &c, SS_FLAG_READ) == SS_ERROR_NONE
                                       ? 0
                                       : 1;
                        }))
            << uid;
}

TEST_F(StorageAccess, EachPackageReadsItsOwnDataAndNotTheOthers)
{
    struct Case {
        uid_t uid;
        const char *own;
        const char *own_value;
        const char *other;
    } cases[] = {{kUidA, kItemA, "token of a", kItemB}, {kUidB, kItemB, "token of b", kItemA}};
    for (const Case &c : cases) {
        EXPECT_EQ(0, As(c.uid,
                        [&c] {
                            ss_credential_t cred = Credential();
                            if (Read(c.own).data != c.own_value)
                                return 1;
                            if (Read(c.other).rc != SS_ERROR_ACCESS_DENIED)
                                return 2;
                            if (ss_validate(c.other, &cred, SS_FLAG_READ) != SS_ERROR_ACCESS_DENIED)
                                return 3;
                            return 0;
                        }))
            << c.own;
    }
    EXPECT_TRUE(log().Contains("refused to read '" + std::string(kItemB) + "' for uid 70001"));
    EXPECT_TRUE(log().Contains("the item is another package's"));
    EXPECT_FALSE(log().Contains("token of")) << "an item's contents reached the log";
}

TEST_F(StorageAccess, ARefusalDoesNotTellWhetherTheItemExists)
{
    ss_credential_t c = Credential();
    ASSERT_EQ(SS_ERROR_NONE, ss_delete(kItemB, &c, 0));
    ASSERT_EQ(SS_ERROR_NONE, ss_delete(kItemA, &c, 0));
    EXPECT_EQ(0, As(kUidA, [] {
                  if (Read(kItemB).rc != SS_ERROR_ACCESS_DENIED)
                      return 1;
                  if (Read("SSO_PUBLICDATA_ID_org.example.unregistered").rc !=
                      SS_ERROR_ACCESS_DENIED)
                      return 2;
                  // Its own item is simply missing.
                  return Read(kItemA).rc == SS_ERROR_NO_ITEM ? 0 : 3;
              }));
}

TEST_F(StorageAccess, ItemsOfNoPackageAreTheServicesAlone)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("service/secret", "s"));
    for (const char *item : {"service/secret", "SSO_PUBLICDATA_ID_", "SSO_PUBLICDATA_IDX",
                             "SSO_PUBLICDATA_ID_org.example.a/../b", "sso_publicdata_id"})
        EXPECT_EQ(0, As(kUidA, [item] { return Read(item).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1; }))
            << item;
}

TEST_F(StorageAccess, OnlyTheServicesUsersWriteOrDelete)
{
    EXPECT_EQ(0, As(kUidA, [] {
                  ss_credential_t c = Credential();
                  const unsigned char forged[] = "forged";
                  for (const char *item : {kItemA, kShared, "new-item"}) {
                      if (ss_write(item, forged, 6, &c, 0) != SS_ERROR_ACCESS_DENIED)
                          return 1;
                      if (ss_delete(item, &c, 0) != SS_ERROR_ACCESS_DENIED)
                          return 2;
                  }
                  return 0;
              }));
    EXPECT_EQ("the account document", Read(kShared).data);
    EXPECT_EQ("token of a", Read(kItemA).data);
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("new-item").rc);
}

TEST_F(StorageAccess, TheNamedServiceUserReadsAndWritesEverything)
{
    root_.StopStorage();
    root_.StartStorage({"--service-user", "70900"});
    EXPECT_EQ(0, As(70900, [] {
                  if (Read(kItemA).data != "token of a" || Read(kItemB).data != "token of b")
                      return 1;
                  if (Write(kShared, "published by the service") != SS_ERROR_NONE)
                      return 2;
                  ss_credential_t c = Credential();
                  return ss_delete(kItemB, &c, 0) == SS_ERROR_NONE ? 0 : 3;
              }));
    EXPECT_EQ("published by the service", Read(kShared).data);
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read(kItemB).rc);
    // Without the option the same user is a stranger.
    root_.StopStorage();
    root_.StartStorage();
    EXPECT_EQ(0, As(70900, [] { return Read(kItemA).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1; }));
}

TEST_F(StorageAccess, TheStoresFilesAreOutOfEveryOtherUsersReach)
{
    const std::string store = StoreDir();
    EXPECT_EQ(0, As(kUidA, [store] {
                  int failures = 0;
                  for (const std::string path : {store + "/device.key", store + "/items/" + kItemA,
                                                 store + "/items/" + kShared, store + "/lock"}) {
                      int fd = open(path.c_str(), O_RDONLY);
                      if (fd >= 0 || errno != EACCES) {
                          failures++;
                          if (fd >= 0)
                              close(fd);
                      }
                  }
                  for (const std::string dir : {store, store + "/items"}) {
                      DIR *d = opendir(dir.c_str());
                      if (d != nullptr || errno != EACCES) {
                          failures++;
                          if (d)
                              closedir(d);
                      }
                  }
                  return failures;
              }));
}

TEST_F(StorageAccess, WhatAProcessSaysAboutItselfCountsForNothing)
{
    // A process of package a that calls itself package b's application (the
    // platform's application id) and uses b's credential is still a's.
    EXPECT_EQ(0, As(kUidA, [] {
                  setenv("SSO_PLATFORM_APP_ID", "org.example.b.app", 1);
                  return Read(kItemB).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1;
              }));
}

TEST_F(StorageAccess, ARegistryOthersCanWriteVouchesForNobody)
{
    const std::string packages = root_.path() + "/packages";
    const std::string entry = packages + "/org.example.a";
    struct Case {
        const char *what;
        std::string path;
        mode_t loose;
        mode_t tight;
    } cases[] = {{"packages/", packages, 0777, 0755},
                 {"the entry", entry, 0666, 0644},
                 {"the root", root_.path(), 0775, 0755}};
    for (const Case &c : cases) {
        ASSERT_EQ(0, chmod(c.path.c_str(), c.loose));
        log().Clear();
        EXPECT_EQ(0, As(kUidA, [] { return Read(kItemA).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1; }))
            << c.what;
        EXPECT_TRUE(log().Contains("the package registry is writable by others")) << c.what;
        ASSERT_EQ(0, chmod(c.path.c_str(), c.tight));
        EXPECT_EQ(0, As(kUidA, [] { return Read(kItemA).data == "token of a" ? 0 : 1; })) << c.what;
    }
    // An entry owned by someone else than root or the service's user.
    ASSERT_EQ(0, chown(entry.c_str(), kUidA, kUidA));
    EXPECT_EQ(0, As(kUidA, [] { return Read(kItemA).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1; }));
    ASSERT_EQ(0, chown(entry.c_str(), 0, 0));
    // A link in place of the entry.
    ASSERT_EQ(0, rename(entry.c_str(), (packages + "/.a").c_str()));
    ASSERT_EQ(0, symlink((packages + "/.a").c_str(), entry.c_str()));
    EXPECT_EQ(0, As(kUidA, [] { return Read(kItemA).rc == SS_ERROR_ACCESS_DENIED ? 0 : 1; }));
}

TEST_F(StorageAccess, ARootGivenAsALinkIsTheRootItNames)
{
    root_.StopStorage();
    const std::string link = root_.path() + ".link";
    ASSERT_EQ(0, symlink(root_.path().c_str(), link.c_str()));
    ssotest::ChildProcess service =
        ssotest::ChildProcess::Spawn({ssotest::ToolPath("sso-storaged"), "--root", link});
    ASSERT_TRUE(service.WaitForOutput("ready\n"));
    EXPECT_EQ(0, As(kUidA, [link] {
                  setenv("SSO_PLATFORM_ROOT", link.c_str(), 1);
                  return Read(kItemA).data == "token of a" ? 0 : 1;
              }));
    unlink(link.c_str());
}

TEST_F(StorageAccess, APackageWithoutAUserIdIsReadByTheServiceOnly)
{
    std::ofstream(root_.path() + "/packages/org.example.c") << "app org.example.c.app\n";
    ASSERT_EQ(SS_ERROR_NONE, Write("SSO_PUBLICDATA_ID_org.example.c", "c"));
    EXPECT_EQ(0, As(kStranger, [] {
                  return Read("SSO_PUBLICDATA_ID_org.example.c").rc == SS_ERROR_ACCESS_DENIED ? 0
                                                                                              : 1;
              }));
    EXPECT_TRUE(log().Contains("the package is not registered with a user"));
    EXPECT_EQ("c", Read("SSO_PUBLICDATA_ID_org.example.c").data);
}

TEST_F(StorageAccess, OneUserCannotCrowdOutTheService)
{
    // A package's process holds many connections open without a word; the
    // service still serves its own user.
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    const std::string root = root_.path();
    ssotest::ChildProcess hog = ssotest::ForkAs(User(kUidA), [gate, root] {
        close(gate[1]);
        std::vector<int> fds;
        for (int i = 0; i < 80; ++i)
            fds.push_back(Connect(root));
        printf("connected\n");
        fflush(stdout);
        char c;
        while (read(gate[0], &c, 1) > 0) {
        }
        return 0;
    });
    close(gate[0]);
    ASSERT_TRUE(hog.WaitForOutput("connected\n"));
    EXPECT_EQ("the account document", Read(kShared).data);
    EXPECT_TRUE(log().Contains("busy: dropped a connection of uid 70001"));
    close(gate[1]);
    EXPECT_EQ(0, hog.Wait());
}

// --------------------------------------------------------------- on disk

TEST_F(StorageService, TheSocketIsEveryonesAndTheStoreNobodyElses)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x"));
    EXPECT_EQ(0666u, ModeOf(Socket()));
    EXPECT_EQ(0711u, ModeOf(StoreDir()));
    EXPECT_EQ(0700u, ModeOf(StoreDir() + "/items"));
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/items/item"));
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/device.key"));
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/lock"));
}

// ----------------------------------------------------- a service that fails

TEST_F(StorageService, WithoutAServiceEveryCallFailsAtOnceWithALogLine)
{
    root_.StopStorage();
    log().Clear();
    ss_credential_t c = Credential();
    const unsigned char data[] = "x";
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, Read("item").rc);
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, ss_validate("item", &c, SS_FLAG_READ));
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, ss_write("item", data, 1, &c, 0));
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, ss_delete("item", &c, 0));
    EXPECT_EQ(4, log().Count("SS_CLIENT: ")) << log().Text();
    EXPECT_TRUE(log().Contains("read 'item': no storage service at " + Socket()));
    // Bad arguments are still told apart without asking anyone.
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_validate("", &c, SS_FLAG_READ));
    // A service that comes back is found again.
    root_.StartStorage();
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item").rc);
}

TEST_F(StorageService, AHungServiceIsGivenUpOnWithinTheTimeOut)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x"));
    setenv("SSO_PLATFORM_SS_TIMEOUT_MS", "300", 1);
    ASSERT_TRUE(root_.SuspendStorage());
    log().Clear();
    auto start = Clock::now();
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, Read("item").rc);
    ss_credential_t c = Credential();
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, ss_validate("item", &c, SS_FLAG_READ));
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    EXPECT_LT(took.count(), 10000) << "a hung service held the caller";
    EXPECT_TRUE(log().Contains("read 'item': no answer in time from " + Socket()));
    root_.ResumeStorage();
    unsetenv("SSO_PLATFORM_SS_TIMEOUT_MS");
    EXPECT_EQ("x", Read("item").data);
}

// A stand-in for the service on its socket that answers one connection with
// the given bytes (or nothing, holding it open until stopped).
class FakeService {
public:
    FakeService(const std::string &path, std::string answer, bool answer_at_all = true)
    {
        fd_ = ssotest::BindUnixSocket(SOCK_STREAM, path);
        ok_ = fd_ >= 0 && listen(fd_, 8) == 0;
        thread_ = std::thread([this, answer, answer_at_all] {
            int conn = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (conn < 0)
                return;
            if (answer_at_all)
                send(conn, answer.data(), answer.size(), MSG_NOSIGNAL);
            while (!stop_.load() && !answer_at_all)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            close(conn);
        });
    }
    ~FakeService()
    {
        stop_ = true;
        shutdown(fd_, SHUT_RDWR);
        thread_.join();
        close(fd_);
    }
    bool ok() const { return ok_; }

private:
    int fd_ = -1;
    bool ok_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

std::string ReplyHeader(uint32_t magic, int32_t status, uint32_t len)
{
    unsigned char h[SS_WIRE_REPLY_HEADER_LEN];
    ss_wire_encode_reply_header(status, len, h);
    h[0] = static_cast<unsigned char>(magic >> 24);
    h[1] = static_cast<unsigned char>(magic >> 16);
    h[2] = static_cast<unsigned char>(magic >> 8);
    h[3] = static_cast<unsigned char>(magic);
    return std::string(reinterpret_cast<char *>(h), sizeof(h));
}

struct AnswerCase {
    const char *name;
    std::string answer;
    bool answer_at_all;
    const char *logged;
};

void PrintTo(const AnswerCase &c, std::ostream *os)
{
    *os << c.name;
}

class BrokenAnswer : public StorageService, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(BrokenAnswer, IsServiceUnavailableAndHandsNothingOut)
{
    root_.StopStorage();
    setenv("SSO_PLATFORM_SS_TIMEOUT_MS", "300", 1);
    FakeService fake(Socket(), GetParam().answer, GetParam().answer_at_all);
    ASSERT_TRUE(fake.ok());
    log().Clear();
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, Read("item").rc); // out arguments checked too
    EXPECT_TRUE(log().Contains(GetParam().logged)) << log().Text();
    unsetenv("SSO_PLATFORM_SS_TIMEOUT_MS");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, BrokenAnswer,
    ::testing::Values(AnswerCase{"Silence", "", false, "no answer in time from"},
                      AnswerCase{"HangUp", "", true, "no answer from"},
                      AnswerCase{"HalfAHeader", ReplyHeader(SS_WIRE_REPLY_MAGIC, 0, 4).substr(0, 5),
                                 true, "no answer from"},
                      AnswerCase{"AnotherMagic", ReplyHeader(0x48545450u, 0, 0), true,
                                 "a garbled answer from"},
                      AnswerCase{"AnUnknownStatus", ReplyHeader(SS_WIRE_REPLY_MAGIC, -77, 0), true,
                                 "a garbled answer from"},
                      AnswerCase{"APositiveStatus", ReplyHeader(SS_WIRE_REPLY_MAGIC, 3, 0), true,
                                 "a garbled answer from"},
                      AnswerCase{"DataWithAFailure",
                                 ReplyHeader(SS_WIRE_REPLY_MAGIC, SS_ERROR_NO_ITEM, 4) + "abcd",
                                 true, "a garbled answer from"},
                      AnswerCase{"MoreThanAnItemHolds",
                                 ReplyHeader(SS_WIRE_REPLY_MAGIC, 0, SS_MAX_ITEM_SIZE + 1u), true,
                                 "a garbled answer from"},
                      AnswerCase{"ShortData", ReplyHeader(SS_WIRE_REPLY_MAGIC, 0, 10) + "abc", true,
                                 "a cut answer from"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(StorageService, AStalledClientHoldsUpNobody)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x"));
    int stalled = Connect(root_.path());
    ASSERT_GE(stalled, 0);
    std::string half = Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0).substr(0, 10);
    ASSERT_EQ(10, send(stalled, half.data(), half.size(), MSG_NOSIGNAL));
    EXPECT_EQ("x", Read("item").data);
    close(stalled);
}

// --------------------------------------------------- malformed requests

struct RequestCase {
    const char *name;
    std::string bytes;
    int expected;
};

void PrintTo(const RequestCase &c, std::ostream *os)
{
    *os << c.name;
}

class MalformedRequest : public StorageService,
                         public ::testing::WithParamInterface<RequestCase> {};

TEST_P(MalformedRequest, IsAnsweredWithItsCodeAndTheServiceCarriesOn)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x"));
    EXPECT_EQ(GetParam().expected, RawStatus(root_.path(), GetParam().bytes));
    EXPECT_EQ("x", Read("item").data);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, MalformedRequest,
    ::testing::Values(
        RequestCase{"AnotherMagic",
                    Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0, 0x47455420u) + "item",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AnUnknownOperation", Header(9, SS_FLAG_READ, 4, 0) + "item",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AnUnknownFlag", Header(SS_WIRE_OP_READ, SS_FLAG_READ | 0x400, 4, 0) + "item",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AReadWithoutTheReadFlag", Header(SS_WIRE_OP_READ, 0, 4, 0) + "item",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"NoItemId", Header(SS_WIRE_OP_READ, SS_FLAG_READ, 0, 0),
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AnItemIdTooLong",
                    Header(SS_WIRE_OP_READ, SS_FLAG_READ, 256, 0) + std::string(256, 'x'),
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"ANulInTheItemId",
                    Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0) + std::string("it\0m", 4),
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AControlCharacterInTheItemId",
                    Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0) + "it\nm",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"DataWithARead", Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 3) + "itemabc",
                    SS_ERROR_INVALID_PARAMETER},
        RequestCase{"AWriteAboveTheLimit",
                    Header(SS_WIRE_OP_WRITE, 0, 4, SS_MAX_ITEM_SIZE + 1u) + "item",
                    SS_ERROR_TOO_LARGE},
        // Cut short: the service gives up on it without an answer.
        RequestCase{"HalfAHeader", Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0).substr(0, 20), 1},
        RequestCase{"AShortItemId", Header(SS_WIRE_OP_READ, SS_FLAG_READ, 4, 0) + "it", 1},
        RequestCase{"ShortData", Header(SS_WIRE_OP_WRITE, 0, 4, 100) + "itemabc", 1}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(StorageService, AStrangersWriteIsRefusedBeforeItsDataIsRead)
{
    if (!ssotest::CanSwitchUsers())
        GTEST_SKIP() << "playing other users needs root";
    const std::string root = root_.path();
    // Only the header: a service that waited for the 16 MiB would never
    // answer.
    EXPECT_EQ(0, As(kStranger, [root] {
                  return RawStatus(root, Header(SS_WIRE_OP_WRITE, 0, 4, SS_MAX_ITEM_SIZE) +
                                             "item") == SS_ERROR_ACCESS_DENIED
                             ? 0
                             : 1;
              }));
}

// ----------------------------------------------------- starting and stopping

ssotest::CommandResult RunService(const std::vector<std::string> &args)
{
    std::vector<std::string> argv = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1",
                                     ssotest::ToolPath("sso-storaged")};
    argv.insert(argv.end(), args.begin(), args.end());
    return ssotest::RunCommand(argv, {}, std::chrono::seconds(20));
}

TEST_F(StorageService, ASecondServiceForTheSameRootRefusesToStart)
{
    ssotest::CommandResult r = RunService({"--root", root_.path()});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("another storage service serves this platform root"))
        << r.out;
    EXPECT_TRUE(root_.storage_running());
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item").rc);
}

TEST_F(StorageService, TheServiceNeedsARootAndAStoreOfItsOwn)
{
    const std::string missing = root_.path() + "/missing";
    ssotest::CommandResult r = RunService({"--root", missing});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("no platform root at " + missing)) << r.out;
    EXPECT_NE(0, access(missing.c_str(), F_OK)) << "the root was invented";

    const std::string blocked = root_.path() + "/blocked";
    ASSERT_EQ(0, mkdir(blocked.c_str(), 0755));
    std::ofstream(blocked + "/secure-storage") << "not a directory";
    r = RunService({"--root", blocked});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("is not a directory")) << r.out;
    EXPECT_EQ("not a directory", ReadWholeFile(blocked + "/secure-storage"));

    if (ssotest::CanSwitchUsers()) {
        const std::string foreign = root_.path() + "/foreign";
        ASSERT_EQ(0, mkdir(foreign.c_str(), 0755));
        ASSERT_EQ(0, mkdir((foreign + "/secure-storage").c_str(), 0700));
        ASSERT_EQ(0, chown((foreign + "/secure-storage").c_str(), kUidA, kUidA));
        r = RunService({"--root", foreign});
        EXPECT_EQ(1, r.status);
        EXPECT_NE(std::string::npos, r.out.find("belongs to uid 70001")) << r.out;
    }

    r = RunService({"--root", root_.path(), "--service-user", "no-such-user-here"});
    EXPECT_EQ(2, r.status);
    EXPECT_NE(std::string::npos, r.out.find("no such user 'no-such-user-here'")) << r.out;
    EXPECT_EQ(2, RunService({"--bogus"}).status);
}

TEST_F(StorageService, ARootTooDeepForASocketIsAClearErrorOnBothSides)
{
    // A Unix socket's path holds at most 107 bytes.
    const std::string deep = root_.path() + "/" + std::string(100, 'd');
    ASSERT_EQ(0, mkdir(deep.c_str(), 0755));
    ssotest::CommandResult r = RunService({"--root", deep});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("is too long")) << r.out;
    setenv("SSO_PLATFORM_ROOT", deep.c_str(), 1);
    log().Clear();
    EXPECT_EQ(SS_ERROR_SERVICE_UNAVAILABLE, Read("item").rc);
    setenv("SSO_PLATFORM_ROOT", root_.path().c_str(), 1);
    EXPECT_TRUE(
        log().Contains("read 'item': the storage socket's path under " + deep + " is too long"));
}

TEST_F(StorageService, SigtermStopsItCleanlyAndTakesItsSocketAlong)
{
    root_.StopStorage();
    ssotest::ChildProcess service =
        ssotest::ChildProcess::Spawn({ssotest::ToolPath("sso-storaged"), "--root", root_.path()});
    ASSERT_TRUE(service.WaitForOutput("ready\n"));
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "kept"));
    service.Kill(SIGTERM);
    EXPECT_EQ(0, service.Wait());
    EXPECT_NE(0, access(Socket().c_str(), F_OK));
    EXPECT_TRUE(log().Contains("SS_SERVICE: stopped"));
    // The items stay for the next service.
    root_.StartStorage();
    EXPECT_EQ("kept", Read("item").data);
}

// As a Type=notify unit of systemd: one datagram when it serves, one when it
// stops, on the socket NOTIFY_SOCKET names (a path, or "@" and an abstract
// name).
TEST_F(StorageService, TellsTheServiceManagerWhenItServesAndWhenItStops)
{
    root_.StopStorage();
    const std::string names[] = {root_.path() + "/notify",
                                 "@sso-notify-" + std::to_string(getpid())};
    for (const std::string &name : names) {
        int fd = ssotest::BindUnixSocket(SOCK_DGRAM, name);
        ASSERT_GE(fd, 0) << name;
        struct timeval tv = {10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        ssotest::ChildProcess service = ssotest::ChildProcess::Spawn(
            {ssotest::ToolPath("sso-storaged"), "--root", root_.path()}, {{"NOTIFY_SOCKET", name}});
        char message[64] = {0};
        ASSERT_GT(recv(fd, message, sizeof(message) - 1, 0), 0) << name;
        EXPECT_STREQ("READY=1", message);
        EXPECT_TRUE(service.WaitForOutput("ready\n"));
        EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item").rc) << "not serving when it said so";
        service.Kill(SIGTERM);
        memset(message, 0, sizeof(message));
        ASSERT_GT(recv(fd, message, sizeof(message) - 1, 0), 0) << name;
        EXPECT_STREQ("STOPPING=1", message);
        EXPECT_EQ(0, service.Wait());
        close(fd);
    }
}

TEST_F(StorageService, HelpSaysWhatItDoes)
{
    ssotest::CommandResult r = RunService({"--help"});
    EXPECT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("--service-user")) << r.out;
}

} // namespace
