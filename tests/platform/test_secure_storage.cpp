// Secure storage through the storage service: items round-trip under their
// credential and under no other, any damage to an item file is an
// authentication failure rather than garbage, the device key is made once
// even when clients race for it, and bad arguments or a broken store give the
// documented codes. (Who may read what: test_storage_service.cpp.)
#include <ss_manager.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "sso_test_harness.h"
#include "stress_writers.h"
#include "storage_test_util.h"

namespace {

using sstest::ModeOf;
using sstest::ReadWholeFile;
using sstest::WriteWholeFile;

constexpr uint32_t kModuleId = 0x53534F41u;
constexpr uint64_t kUuid0 = 0x5f0a93c2d1e84b7aull;
constexpr uint64_t kUuid1 = 0xa6e2c90b3f17d845ull;

// Header, nonce and tag around the ciphertext of every item file.
constexpr size_t kMagicLen = 8;
constexpr size_t kNonceLen = 12;
constexpr size_t kTagLen = 16;
constexpr size_t kOverhead = kMagicLen + kNonceLen + kTagLen;

ss_credential_t MakeCredential(uint32_t module_id = kModuleId, uint64_t w0 = kUuid0,
                               uint64_t w1 = kUuid1)
{
    return sstest::Credential(module_id, w0, w1);
}

bool Exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string &dir)
{
    std::vector<std::string> names;
    ssotest::CommandResult r = ssotest::RunCommand({"/bin/ls", "-A", dir});
    std::istringstream in(r.out);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            names.push_back(line);
    return names;
}

// The outcome of one read: the code and, on success, the bytes.
struct ReadResult {
    int rc = 1;
    std::string data;
    bool nul_terminated = false;
};

ReadResult Read(const std::string &id, const ss_credential_t &cred,
                unsigned int flags = SS_FLAG_READ | SS_FLAG_INTEGRITY)
{
    ReadResult r;
    unsigned char *buffer = nullptr;
    size_t length = 0;
    r.rc = ss_read(&buffer, &length, nullptr, nullptr, id.c_str(), &cred, flags);
    if (r.rc == SS_ERROR_NONE && buffer) {
        r.data.assign(reinterpret_cast<const char *>(buffer), length);
        r.nul_terminated = buffer[length] == '\0';
        ss_free_buffer(buffer);
    }
    return r;
}

int Write(const std::string &id, const std::string &data, const ss_credential_t &cred)
{
    return ss_write(id.c_str(), reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                    &cred, 0);
}

class SecureStorage : public ssotest::StorageTest {
protected:
    std::string KeyPath() const { return StoreDir() + "/device.key"; }
    // For ids made of plain characters only, the file name is the id.
    std::string ItemPath(const std::string &plain_id) const
    {
        return StoreDir() + "/items/" + plain_id;
    }

    const ss_credential_t cred_ = MakeCredential();
};

// ---- round trips ----

struct ContentCase {
    const char *name;
    std::string content;
};

void PrintTo(const ContentCase &c, std::ostream *os)
{
    *os << c.name;
}

class SecureStorageRoundTrip : public SecureStorage,
                               public ::testing::WithParamInterface<ContentCase> {};

TEST_P(SecureStorageRoundTrip, ReadsBackExactlyWhatWasWrittenWithATrailingNul)
{
    const std::string &content = GetParam().content;
    ASSERT_EQ(SS_ERROR_NONE, Write("item", content, cred_));
    ReadResult r = Read("item", cred_);
    ASSERT_EQ(SS_ERROR_NONE, r.rc);
    EXPECT_EQ(content.size(), r.data.size());
    EXPECT_TRUE(r.data == content);
    EXPECT_TRUE(r.nul_terminated);
    EXPECT_EQ(SS_ERROR_NONE, ss_validate("item", &cred_, SS_FLAG_READ));
    // Sealed at rest: the file is the content plus the fixed overhead.
    EXPECT_EQ(content.size() + kOverhead, ReadWholeFile(ItemPath("item")).size());
}

std::string BinaryContent()
{
    std::string s;
    for (int i = 0; i < 600; ++i)
        s.push_back(static_cast<char>(i % 256));
    s += std::string("\0\0\0tail\0", 8);
    return s;
}

std::string LargeContent()
{
    std::string s(8u * 1024u * 1024u, '\0');
    for (size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char>((i * 2654435761u) >> 13);
    return s;
}

INSTANTIATE_TEST_SUITE_P(Contents, SecureStorageRoundTrip,
                         ::testing::Values(ContentCase{"Empty", ""},
                                           ContentCase{"Small", "{\"accounts\":[]}"},
                                           ContentCase{"BinaryWithNuls", BinaryContent()},
                                           ContentCase{"EightMiB", LargeContent()}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, AnEmptyItemMayBeWrittenFromANullPointer)
{
    ASSERT_EQ(SS_ERROR_NONE, ss_write("empty", nullptr, 0, &cred_, 0));
    ReadResult r = Read("empty", cred_);
    ASSERT_EQ(SS_ERROR_NONE, r.rc);
    EXPECT_EQ("", r.data);
    EXPECT_TRUE(r.nul_terminated);
}

TEST_F(SecureStorage, AWriteReplacesThePreviousContents)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "first, longer contents", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "second", cred_));
    EXPECT_EQ("second", Read("item", cred_).data);
}

TEST_F(SecureStorage, TheItemIsEncryptedAtRest)
{
    const std::string secret = "plain-text-that-must-not-be-on-disk";
    ASSERT_EQ(SS_ERROR_NONE, Write("item", secret, cred_));
    std::string file = ReadWholeFile(ItemPath("item"));
    EXPECT_EQ(std::string("SSOSS1\0\0", 8), file.substr(0, 8));
    EXPECT_EQ(std::string::npos, file.find(secret));
    EXPECT_EQ(std::string::npos, file.find("plain-text"));
}

TEST_F(SecureStorage, ScopedReadsReturnTheWholeItem)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "whole", cred_));
    unsigned char *buffer = nullptr;
    size_t length = 0;
    ASSERT_EQ(SS_ERROR_NONE, ss_read(&buffer, &length, nullptr, "guid-1234", "item", &cred_,
                                     SS_FLAG_READ | SS_FLAG_SCOPED));
    EXPECT_EQ("whole", std::string(reinterpret_cast<char *>(buffer), length));
    ss_free_buffer(buffer);
    buffer = nullptr;
    ASSERT_EQ(SS_ERROR_NONE, ss_read(&buffer, &length, nullptr, nullptr, "item", &cred_,
                                     SS_FLAG_READ | SS_FLAG_SCOPED));
    ss_free_buffer(buffer);
}

struct IdCase {
    const char *name;
    std::string id;
};

void PrintTo(const IdCase &c, std::ostream *os)
{
    *os << c.name;
}

class SecureStorageItemIds : public SecureStorage, public ::testing::WithParamInterface<IdCase> {};

TEST_P(SecureStorageItemIds, RoundTripsAndStaysInTheItemsDirectory)
{
    const std::string &id = GetParam().id;
    ASSERT_EQ(SS_ERROR_NONE, Write(id, "value of " + id, cred_));
    EXPECT_EQ("value of " + id, Read(id, cred_).data);
    std::vector<std::string> names = ListDir(StoreDir() + "/items");
    ASSERT_EQ(1u, names.size());
    EXPECT_NE('.', names[0][0]);
    EXPECT_EQ(std::string::npos, names[0].find('/'));
    EXPECT_EQ(SS_ERROR_NONE, ss_delete(id.c_str(), &cred_, 0));
    EXPECT_TRUE(ListDir(StoreDir() + "/items").empty());
}

INSTANTIATE_TEST_SUITE_P(Ids, SecureStorageItemIds,
                         ::testing::Values(IdCase{"OneByte", "a"},
                                           IdCase{"WithSlashes", "sso/accounts/main"},
                                           IdCase{"LeadingDot", ".hidden"}, IdCase{"DotDot", ".."},
                                           IdCase{"Spaces", "an item id"},
                                           IdCase{"NonAscii", "compte-\xc3\xa9t\xc3\xa9"},
                                           IdCase{"LongestPlain", std::string(255, 'x')},
                                           IdCase{"LongestEncoded", std::string(255, '/')}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, IdsThatEncodeAlikeOnlyInPartAreDistinctItems)
{
    // "%2F" as literal text and "/" must not share a file.
    ASSERT_EQ(SS_ERROR_NONE, Write("a/b", "slash", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("a%2Fb", "percent", cred_));
    EXPECT_EQ("slash", Read("a/b", cred_).data);
    EXPECT_EQ("percent", Read("a%2Fb", cred_).data);
}

// ---- missing items ----

TEST_F(SecureStorage, ReadingAMissingItemFailsWithNoItemAndLeavesTheOutArgumentsAlone)
{
    unsigned char sentinel = 0;
    unsigned char *buffer = &sentinel;
    size_t length = 77;
    EXPECT_EQ(SS_ERROR_NO_ITEM,
              ss_read(&buffer, &length, nullptr, nullptr, "missing", &cred_, SS_FLAG_READ));
    EXPECT_EQ(&sentinel, buffer);
    EXPECT_EQ(77u, length);
    EXPECT_EQ(SS_ERROR_NO_ITEM, ss_validate("missing", &cred_, SS_FLAG_READ));
}

TEST_F(SecureStorage, ReadingFromAStoreNeverWrittenFailsWithNoItem)
{
    ASSERT_TRUE(ListDir(StoreDir() + "/items").empty());
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("missing", cred_).rc);
    EXPECT_FALSE(Exists(KeyPath())); // reads never create the key
}

TEST_F(SecureStorage, ADeletedItemIsGone)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x", cred_));
    ASSERT_EQ(SS_ERROR_NONE, ss_delete("item", &cred_, 0));
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item", cred_).rc);
    EXPECT_FALSE(Exists(ItemPath("item")));
    EXPECT_EQ(SS_ERROR_NO_ITEM, ss_delete("item", &cred_, 0));
}

TEST_F(SecureStorage, AnItemThatNoLongerAuthenticatesCanStillBeDeleted)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x", cred_));
    ss_credential_t other = MakeCredential(kModuleId + 1);
    EXPECT_EQ(SS_ERROR_NONE, ss_delete("item", &other, 0));
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item", cred_).rc);
}

// ---- foreign credentials ----

struct CredentialCase {
    const char *name;
    uint32_t module_id;
    uint64_t w0;
    uint64_t w1;
};

void PrintTo(const CredentialCase &c, std::ostream *os)
{
    *os << c.name;
}

class SecureStorageForeignCredential : public SecureStorage,
                                       public ::testing::WithParamInterface<CredentialCase> {};

TEST_P(SecureStorageForeignCredential, FailsReadAndValidateWithAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "owned", cred_));
    const CredentialCase &c = GetParam();
    ss_credential_t other = MakeCredential(c.module_id, c.w0, c.w1);

    unsigned char sentinel = 0;
    unsigned char *buffer = &sentinel;
    size_t length = 5;
    EXPECT_EQ(SS_ERROR_AUTHENTICATION,
              ss_read(&buffer, &length, nullptr, nullptr, "item", &other, SS_FLAG_READ));
    EXPECT_EQ(&sentinel, buffer);
    EXPECT_EQ(5u, length);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, ss_validate("item", &other, SS_FLAG_READ));
    // The owner is unaffected.
    EXPECT_EQ("owned", Read("item", cred_).data);
}

INSTANTIATE_TEST_SUITE_P(
    Credentials, SecureStorageForeignCredential,
    ::testing::Values(CredentialCase{"OtherModuleId", kModuleId ^ 1u, kUuid0, kUuid1},
                      CredentialCase{"OtherUuidHighWord", kModuleId, kUuid0 ^ (1ull << 63), kUuid1},
                      CredentialCase{"OtherUuidLowWord", kModuleId, kUuid0, kUuid1 ^ 1u},
                      CredentialCase{"AllZero", 0, 0, 0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, EachCredentialReadsItsOwnVersionAfterRewrites)
{
    ss_credential_t other = MakeCredential(7);
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "mine", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "theirs", other));
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("item", cred_).rc);
    EXPECT_EQ("theirs", Read("item", other).data);
}

// ---- damaged item files ----

// A place in an item file: a byte offset from the start (>= 0) or the end
// (< 0). Where a byte is flipped, or how much of the file is kept.
struct FilePlace {
    const char *name;
    long offset;
    size_t In(const std::string &file) const
    {
        return offset >= 0 ? static_cast<size_t>(offset)
                           : file.size() - static_cast<size_t>(-offset);
    }
};
using TamperCase = FilePlace;
using TruncateCase = FilePlace;

void PrintTo(const FilePlace &c, std::ostream *os)
{
    *os << c.name;
}

class SecureStorageTampered : public SecureStorage,
                              public ::testing::WithParamInterface<FilePlace> {};

TEST_P(SecureStorageTampered, FailsWithAuthenticationAndHandsNothingOut)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "a document worth protecting", cred_));
    std::string file = ReadWholeFile(ItemPath("item"));
    size_t at = GetParam().In(file);
    ASSERT_LT(at, file.size());
    file[at] = static_cast<char>(file[at] ^ 0x01);
    WriteWholeFile(ItemPath("item"), file);

    unsigned char sentinel = 0;
    unsigned char *buffer = &sentinel;
    size_t length = 9;
    EXPECT_EQ(SS_ERROR_AUTHENTICATION,
              ss_read(&buffer, &length, nullptr, nullptr, "item", &cred_, SS_FLAG_READ));
    EXPECT_EQ(&sentinel, buffer);
    EXPECT_EQ(9u, length);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, ss_validate("item", &cred_, SS_FLAG_READ));
}

INSTANTIATE_TEST_SUITE_P(
    Regions, SecureStorageTampered,
    ::testing::Values(TamperCase{"MagicFirstByte", 0}, TamperCase{"MagicPadding", 7},
                      TamperCase{"NonceFirstByte", 8}, TamperCase{"NonceLastByte", 19},
                      TamperCase{"CiphertextFirstByte", 20}, TamperCase{"CiphertextLastByte", -17},
                      TamperCase{"TagFirstByte", -16}, TamperCase{"TagLastByte", -1}),
    [](const auto &info) { return std::string(info.param.name); });

class SecureStorageTruncated : public SecureStorage,
                               public ::testing::WithParamInterface<FilePlace> {};

TEST_P(SecureStorageTruncated, FailsWithAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "a document worth protecting", cred_));
    std::string file = ReadWholeFile(ItemPath("item"));
    WriteWholeFile(ItemPath("item"), file.substr(0, GetParam().In(file)));

    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("item", cred_).rc);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, ss_validate("item", &cred_, SS_FLAG_READ));
}

INSTANTIATE_TEST_SUITE_P(Lengths, SecureStorageTruncated,
                         ::testing::Values(TruncateCase{"Empty", 0}, TruncateCase{"HalfMagic", 4},
                                           TruncateCase{"MagicOnly", 8},
                                           TruncateCase{"HeaderOnly", 20},
                                           TruncateCase{"OneShortOfTheMinimum", 35},
                                           TruncateCase{"WithoutTheTag", -16},
                                           TruncateCase{"LastByteMissing", -1}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, AnItemWithBytesAppendedFailsWithAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "contents", cred_));
    WriteWholeFile(ItemPath("item"), ReadWholeFile(ItemPath("item")) + "x");
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("item", cred_).rc);
}

TEST_F(SecureStorage, AnItemFileCopiedOverAnotherItemsNameFailsWithAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("alpha", "alpha contents", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("beta", "beta contents", cred_));
    WriteWholeFile(ItemPath("beta"), ReadWholeFile(ItemPath("alpha")));

    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("beta", cred_).rc);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, ss_validate("beta", &cred_, SS_FLAG_READ));
    EXPECT_EQ("alpha contents", Read("alpha", cred_).data);
}

TEST_F(SecureStorage, AnItemFileMovedToANewNameFailsWithAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("alpha", "alpha contents", cred_));
    ASSERT_EQ(0, rename(ItemPath("alpha").c_str(), ItemPath("gamma").c_str()));
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("gamma", cred_).rc);
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("alpha", cred_).rc);
}

TEST_F(SecureStorage, ValidateAgreesWithReadInEveryState)
{
    ss_credential_t other = MakeCredential(kModuleId + 1);
    ASSERT_EQ(SS_ERROR_NONE, Write("good", "good", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("empty", "", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("bad", "bad contents", cred_));
    std::string file = ReadWholeFile(ItemPath("bad"));
    file[25] = static_cast<char>(file[25] ^ 0x80);
    WriteWholeFile(ItemPath("bad"), file);
    WriteWholeFile(ItemPath("short"), "SSOSS1");

    struct {
        const char *id;
        const ss_credential_t *cred;
        int expected;
    } cases[] = {
        {"good", &cred_, SS_ERROR_NONE},
        {"empty", &cred_, SS_ERROR_NONE},
        {"good", &other, SS_ERROR_AUTHENTICATION},
        {"bad", &cred_, SS_ERROR_AUTHENTICATION},
        {"short", &cred_, SS_ERROR_AUTHENTICATION},
        {"missing", &cred_, SS_ERROR_NO_ITEM},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.expected, Read(c.id, *c.cred).rc) << c.id;
        EXPECT_EQ(c.expected, ss_validate(c.id, c.cred, SS_FLAG_READ)) << c.id;
        EXPECT_EQ(c.expected, ss_validate(c.id, c.cred, SS_FLAG_READ | SS_FLAG_INTEGRITY)) << c.id;
    }
}

// ---- the device key ----

TEST_F(SecureStorage, TheFirstWriteCreatesAnOwnerOnlyDeviceKeyThatLaterWritesKeep)
{
    ASSERT_FALSE(Exists(KeyPath()));
    ASSERT_EQ(SS_ERROR_NONE, Write("one", "1", cred_));
    ASSERT_TRUE(Exists(KeyPath()));
    EXPECT_EQ(0600u, ModeOf(KeyPath()));
    std::string key = ReadWholeFile(KeyPath());
    EXPECT_EQ(32u, key.size());
    EXPECT_NE(std::string(32, '\0'), key);

    ASSERT_EQ(SS_ERROR_NONE, Write("two", "2", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("one", "1 again", cred_));
    EXPECT_EQ(key, ReadWholeFile(KeyPath()));
    // The key, the items and the service's lock and socket: no temporary
    // files left over.
    std::vector<std::string> names = ListDir(StoreDir());
    EXPECT_EQ((std::vector<std::string>{"device.key", "items", "lock", "socket"}), names);
}

TEST_F(SecureStorage, ItemsAndDirectoriesAreOwnerOnly)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("one", "1", cred_));
    ASSERT_EQ(SS_ERROR_NONE, Write("one", "1 replaced", cred_));
    EXPECT_EQ(0600u, ModeOf(ItemPath("one")));
    // Others may pass through to the socket, not list or open anything.
    EXPECT_EQ(0711u, ModeOf(StoreDir()));
    EXPECT_EQ(0700u, ModeOf(StoreDir() + "/items"));
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/lock"));
}

TEST_F(SecureStorage, AnotherDeviceKeyMakesEveryItemFailAuthentication)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x", cred_));
    WriteWholeFile(KeyPath(), std::string(32, 'k'));
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("item", cred_).rc);
}

TEST_F(SecureStorage, AMissingDeviceKeyFailsReadsOfExistingItemsWithCrypto)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x", cred_));
    ASSERT_EQ(0, unlink(KeyPath().c_str()));
    EXPECT_EQ(SS_ERROR_CRYPTO, Read("item", cred_).rc);
    EXPECT_EQ(SS_ERROR_CRYPTO, ss_validate("item", &cred_, SS_FLAG_READ));
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("missing", cred_).rc);
}

struct KeyCase {
    const char *name;
    std::string contents;
};

void PrintTo(const KeyCase &c, std::ostream *os)
{
    *os << c.name;
}

class SecureStorageBadKey : public SecureStorage, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(SecureStorageBadKey, FailsReadsAndWritesWithCrypto)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "x", cred_));
    WriteWholeFile(KeyPath(), GetParam().contents);
    EXPECT_EQ(SS_ERROR_CRYPTO, Read("item", cred_).rc);
    EXPECT_EQ(SS_ERROR_CRYPTO, Write("item", "y", cred_));
    EXPECT_EQ(SS_ERROR_CRYPTO, Write("new", "y", cred_));
    EXPECT_EQ(GetParam().contents, ReadWholeFile(KeyPath())); // never silently replaced
}

INSTANTIATE_TEST_SUITE_P(Keys, SecureStorageBadKey,
                         ::testing::Values(KeyCase{"Empty", ""},
                                           KeyCase{"Short", std::string(31, 'k')},
                                           KeyCase{"Long", std::string(33, 'k')}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, ADeviceKeyThatIsADirectoryFailsWithCrypto)
{
    ASSERT_EQ(0, mkdir(KeyPath().c_str(), 0700));
    EXPECT_EQ(SS_ERROR_CRYPTO, Write("item", "x", cred_));
}

// ---- processes and threads ----

// Children wait at a gate (EOF on a pipe) so they start writing together.
class Gate {
public:
    Gate()
    {
        if (pipe(fds_) != 0)
            fds_[0] = fds_[1] = -1;
    }
    ~Gate()
    {
        CloseRead();
        Open();
    }
    bool ok() const { return fds_[0] >= 0; }
    // In a child: waits until the parent opens the gate.
    void Wait() const
    {
        close(fds_[1]);
        char c;
        while (read(fds_[0], &c, 1) > 0) {
        }
    }
    void CloseRead()
    {
        if (fds_[0] >= 0)
            close(fds_[0]);
        fds_[0] = -1;
    }
    void Open()
    {
        if (fds_[1] >= 0)
            close(fds_[1]);
        fds_[1] = -1;
    }

private:
    int fds_[2] = {-1, -1};
};

TEST_F(SecureStorage, ProcessesWritingFirstConcurrentlyAgreeOnOneDeviceKey)
{
    // The service serves each client on a thread of its own: their first
    // writes race for the device key inside it.
    constexpr int kProcesses = 4;
    constexpr int kRounds = 5;
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_EQ(0,
                  ssotest::RunCommand({"/bin/rm", "-rf", KeyPath(), StoreDir() + "/items"}).status);
        Gate gate;
        ASSERT_TRUE(gate.ok());
        std::vector<ssotest::ChildProcess> children;
        for (int p = 0; p < kProcesses; ++p) {
            children.push_back(ssotest::ChildProcess::Fork([&gate, p] {
                gate.Wait();
                ss_credential_t c = MakeCredential();
                std::string id = "first-" + std::to_string(p);
                return Write(id, "from process " + std::to_string(p), c) == SS_ERROR_NONE ? 0 : 1;
            }));
        }
        gate.CloseRead();
        gate.Open();
        for (auto &child : children)
            ASSERT_EQ(0, child.Wait()) << "round " << round;

        for (int p = 0; p < kProcesses; ++p) {
            ReadResult r = Read("first-" + std::to_string(p), cred_);
            ASSERT_EQ(SS_ERROR_NONE, r.rc) << "round " << round << " process " << p;
            EXPECT_EQ("from process " + std::to_string(p), r.data);
        }
        EXPECT_EQ(32u, ReadWholeFile(KeyPath()).size());
        EXPECT_EQ((std::vector<std::string>{"device.key", "items", "lock", "socket"}),
                  ListDir(StoreDir()))
            << "round " << round;
    }
}

// Value i of writer w, long enough that the write is not a single block.
std::string WriterValue(int writer, int i)
{
    std::string head = "w" + std::to_string(writer) + "i" + std::to_string(i) + ":";
    return head + std::string(3000 + static_cast<size_t>((writer * 131 + i * 17) % 2000),
                              static_cast<char>('a' + writer));
}

bool IsAWriterValue(const std::string &value)
{
    int writer = -1, i = -1;
    if (std::sscanf(value.c_str(), "w%di%d:", &writer, &i) != 2)
        return false;
    return writer >= 0 && i >= 0 && value == WriterValue(writer, i);
}

TEST_F(SecureStorage, ConcurrentWritersOfOneItemNeverLeaveAnUnreadableItem)
{
    constexpr int kProcesses = 2;
    constexpr int kThreads = 2;
    constexpr int kWrites = 60;
    const std::string id = "contended";
    ASSERT_EQ(SS_ERROR_NONE, Write(id, WriterValue(9, 0), cred_));

    // Processes are forked before any thread exists.
    Gate gate;
    ASSERT_TRUE(gate.ok());
    std::vector<ssotest::ChildProcess> children;
    for (int p = 0; p < kProcesses; ++p) {
        int writer = kThreads + p;
        children.push_back(ssotest::ChildProcess::Fork([&gate, writer, id] {
            gate.Wait();
            ss_credential_t c = MakeCredential();
            for (int i = 0; i < kWrites; ++i)
                if (Write(id, WriterValue(writer, i), c) != SS_ERROR_NONE)
                    return 1;
            return 0;
        }));
    }
    gate.CloseRead();

    std::atomic<bool> done{false};
    std::atomic<int> reads{0}, bad{0}, failed_writes{0};
    std::thread reader([&] {
        while (!done.load()) {
            ReadResult r = Read(id, cred_);
            if (r.rc != SS_ERROR_NONE || !IsAWriterValue(r.data))
                bad++;
            if (ss_validate(id.c_str(), &cred_, SS_FLAG_READ) != SS_ERROR_NONE)
                bad++;
            reads++;
        }
    });
    gate.Open();
    std::vector<std::thread> writers;
    for (int w = 0; w < kThreads; ++w)
        writers.emplace_back([&, w] {
            for (int i = 0; i < kWrites; ++i)
                if (Write(id, WriterValue(w, i), cred_) != SS_ERROR_NONE)
                    failed_writes++;
        });
    ssotest::JoinWriters(writers, children);
    done = true;
    reader.join();

    EXPECT_EQ(0, failed_writes.load());
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(0, bad.load());
    ReadResult last = Read(id, cred_);
    ASSERT_EQ(SS_ERROR_NONE, last.rc);
    EXPECT_TRUE(IsAWriterValue(last.data));
    // Every temporary file of the atomic writes is gone.
    EXPECT_EQ((std::vector<std::string>{id}), ListDir(StoreDir() + "/items"));
}

TEST_F(SecureStorage, ThreadsWritingDistinctItemsFirstAllLand)
{
    constexpr int kThreads = 6;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < 20; ++i)
                EXPECT_EQ(SS_ERROR_NONE,
                          Write("t" + std::to_string(t) + "." + std::to_string(i), "v", cred_));
        });
    for (auto &t : threads)
        t.join();
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ("v", Read("t" + std::to_string(t) + "." + std::to_string(i), cred_).data);
}

// ---- bad arguments ----

struct ArgCase {
    const char *name;
    int expected;
    // Calls one function; buffer and length are the read out arguments.
    std::function<int(unsigned char **, size_t *)> call;
};

void PrintTo(const ArgCase &c, std::ostream *os)
{
    *os << c.name;
}

ss_credential_t Uninitialised()
{
    ss_credential_t c;
    std::memset(&c, 0, sizeof(c));
    c.module_id = kModuleId;
    c.uuid.word[0] = kUuid0;
    c.uuid.word[1] = kUuid1;
    return c;
}

const ss_credential_t &Good()
{
    static const ss_credential_t c = MakeCredential();
    return c;
}

int ReadWith(unsigned char **b, size_t *l, const char *owner, const char *id,
             const ss_credential_t *cred, unsigned int flags)
{
    return ss_read(b, l, owner, nullptr, id, cred, flags);
}

class SecureStorageBadArguments : public SecureStorage,
                                  public ::testing::WithParamInterface<ArgCase> {};

TEST_P(SecureStorageBadArguments, GiveTheDocumentedCodeAndLeaveOutArgumentsAlone)
{
    // An item exists, so only the arguments can be at fault.
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "contents", cred_));
    unsigned char sentinel = 0;
    unsigned char *buffer = &sentinel;
    size_t length = 42;
    EXPECT_EQ(GetParam().expected, GetParam().call(&buffer, &length));
    EXPECT_EQ(&sentinel, buffer);
    EXPECT_EQ(42u, length);
    EXPECT_EQ("contents", Read("item", cred_).data);
}

const unsigned char kData[] = "data";
const std::string kTooLongId(256, 'x');

INSTANTIATE_TEST_SUITE_P(
    Read, SecureStorageBadArguments,
    ::testing::Values(
        ArgCase{"NullBuffer", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *l) {
                    return ReadWith(nullptr, l, nullptr, "item", &Good(), SS_FLAG_READ);
                }},
        ArgCase{"NullLength", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *) {
                    return ReadWith(b, nullptr, nullptr, "item", &Good(), SS_FLAG_READ);
                }},
        ArgCase{"OwnerGiven", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, "someone", "item", &Good(), SS_FLAG_READ);
                }},
        ArgCase{"NullItemId", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, nullptr, &Good(), SS_FLAG_READ);
                }},
        ArgCase{"EmptyItemId", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "", &Good(), SS_FLAG_READ);
                }},
        ArgCase{"ItemIdTooLong", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, kTooLongId.c_str(), &Good(), SS_FLAG_READ);
                }},
        ArgCase{"ItemIdWithControlCharacter", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "it\nem", &Good(), SS_FLAG_READ);
                }},
        ArgCase{"NullCredential", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "item", nullptr, SS_FLAG_READ);
                }},
        ArgCase{"UninitialisedCredential", SS_ERROR_NOT_INITIALIZED,
                [](unsigned char **b, size_t *l) {
                    ss_credential_t c = Uninitialised();
                    return ReadWith(b, l, nullptr, "item", &c, SS_FLAG_READ);
                }},
        ArgCase{"NoReadFlag", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "item", &Good(), SS_FLAG_INTEGRITY);
                }},
        ArgCase{"UnknownFlag", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "item", &Good(), SS_FLAG_READ | 0x0100);
                }},
        ArgCase{"HighUnknownFlag", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **b, size_t *l) {
                    return ReadWith(b, l, nullptr, "item", &Good(), SS_FLAG_READ | 0x80000000u);
                }}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Validate, SecureStorageBadArguments,
    ::testing::Values(ArgCase{"NullItemId", SS_ERROR_INVALID_PARAMETER,
                              [](unsigned char **, size_t *) {
                                  return ss_validate(nullptr, &Good(), SS_FLAG_READ);
                              }},
                      ArgCase{"NullCredential", SS_ERROR_INVALID_PARAMETER,
                              [](unsigned char **, size_t *) {
                                  return ss_validate("item", nullptr, SS_FLAG_READ);
                              }},
                      ArgCase{"UninitialisedCredential", SS_ERROR_NOT_INITIALIZED,
                              [](unsigned char **, size_t *) {
                                  ss_credential_t c = Uninitialised();
                                  return ss_validate("item", &c, SS_FLAG_READ);
                              }},
                      ArgCase{"NoReadFlag", SS_ERROR_INVALID_PARAMETER,
                              [](unsigned char **, size_t *) {
                                  return ss_validate("item", &Good(), 0);
                              }},
                      ArgCase{"UnknownFlag", SS_ERROR_INVALID_PARAMETER,
                              [](unsigned char **, size_t *) {
                                  return ss_validate("item", &Good(), SS_FLAG_READ | 0x4);
                              }}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Write, SecureStorageBadArguments,
    ::testing::Values(
        ArgCase{
            "NullDataWithLength", SS_ERROR_INVALID_PARAMETER,
            [](unsigned char **, size_t *) { return ss_write("item", nullptr, 1, &Good(), 0); }},
        ArgCase{"NullItemId", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) { return ss_write(nullptr, kData, 4, &Good(), 0); }},
        ArgCase{"ItemIdWithDelete", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) {
                    return ss_write("it\x7f"
                                    "em",
                                    kData, 4, &Good(), 0);
                }},
        ArgCase{"NullCredential", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) { return ss_write("item", kData, 4, nullptr, 0); }},
        ArgCase{"UninitialisedCredential", SS_ERROR_NOT_INITIALIZED,
                [](unsigned char **, size_t *) {
                    ss_credential_t c = Uninitialised();
                    return ss_write("item", kData, 4, &c, 0);
                }},
        ArgCase{
            "UnknownFlag", SS_ERROR_INVALID_PARAMETER,
            [](unsigned char **, size_t *) { return ss_write("item", kData, 4, &Good(), 0x2); }},
        // The length is refused before the data is looked at.
        ArgCase{"TooLarge", SS_ERROR_TOO_LARGE,
                [](unsigned char **, size_t *) {
                    return ss_write("item", kData, SS_MAX_ITEM_SIZE + 1u, &Good(), 0);
                }}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Delete, SecureStorageBadArguments,
    ::testing::Values(
        ArgCase{"NullItemId", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) { return ss_delete(nullptr, &Good(), 0); }},
        ArgCase{"NullCredential", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) { return ss_delete("item", nullptr, 0); }},
        ArgCase{"UninitialisedCredential", SS_ERROR_NOT_INITIALIZED,
                [](unsigned char **, size_t *) {
                    ss_credential_t c = Uninitialised();
                    return ss_delete("item", &c, 0);
                }},
        ArgCase{"UnknownFlag", SS_ERROR_INVALID_PARAMETER,
                [](unsigned char **, size_t *) { return ss_delete("item", &Good(), 0x400); }}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SecureStorage, AnItemOfExactlyTheMaximumSizeIsAccepted)
{
    std::string max(SS_MAX_ITEM_SIZE, 'm');
    ASSERT_EQ(SS_ERROR_NONE, Write("max", max, cred_));
    ReadResult r = Read("max", cred_);
    ASSERT_EQ(SS_ERROR_NONE, r.rc);
    EXPECT_EQ(max.size(), r.data.size());
}

TEST_F(SecureStorage, InitCredentialFillsEveryField)
{
    ss_uuid_t uuid;
    uuid.word[0] = 1;
    uuid.word[1] = 2;
    ss_credential_t c;
    std::memset(&c, 0xAB, sizeof(c));
    ASSERT_EQ(SS_ERROR_NONE, ss_init_credential(&c, 99, &uuid, SS_FLAG_INIT));
    EXPECT_NE(0u, c.magic);
    EXPECT_EQ(99u, c.module_id);
    EXPECT_EQ(1u, c.version.major);
    EXPECT_EQ(0u, c.version.minor);
    EXPECT_EQ(1u, c.uuid.word[0]);
    EXPECT_EQ(2u, c.uuid.word[1]);
}

TEST_F(SecureStorage, InitCredentialRefusesBadArguments)
{
    ss_uuid_t uuid = {{1, 2}};
    ss_credential_t c;
    std::memset(&c, 0, sizeof(c));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_init_credential(nullptr, 1, &uuid, SS_FLAG_INIT));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_init_credential(&c, 1, nullptr, SS_FLAG_INIT));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_init_credential(&c, 1, &uuid, 0x8));
    EXPECT_EQ(0u, c.magic); // untouched, so still refused later
    EXPECT_EQ(SS_ERROR_NOT_INITIALIZED, ss_validate("item", &c, SS_FLAG_READ));
}

TEST_F(SecureStorage, FreeingANullBufferIsHarmless)
{
    ss_free_buffer(nullptr);
}

// ---- a broken store ----
// (A store that cannot be made at all keeps the service from starting:
// test_storage_service.cpp; the store's own codes for it: test_ss_store.cpp.)

TEST_F(SecureStorage, AnItemsDirectoryBlockedByARegularFileFailsWithIo)
{
    ASSERT_EQ(0, ssotest::RunCommand({"/bin/rm", "-rf", StoreDir() + "/items"}).status);
    WriteWholeFile(StoreDir() + "/items", "not a directory");
    EXPECT_EQ(SS_ERROR_IO, Write("item", "x", cred_));
    EXPECT_EQ(SS_ERROR_IO, Read("item", cred_).rc);
    EXPECT_EQ(SS_ERROR_IO, ss_validate("item", &cred_, SS_FLAG_READ));
    EXPECT_EQ(SS_ERROR_IO, ss_delete("item", &cred_, 0));
    EXPECT_EQ("not a directory", ReadWholeFile(StoreDir() + "/items"));
}

TEST_F(SecureStorage, AnItemPathTakenByADirectoryFailsWithIo)
{
    ASSERT_EQ(SS_ERROR_NONE, Write("other", "x", cred_));
    ASSERT_EQ(0, mkdir(ItemPath("item").c_str(), 0700));
    EXPECT_EQ(SS_ERROR_IO, Read("item", cred_).rc);
    EXPECT_EQ(SS_ERROR_IO, Write("item", "x", cred_));
}

// ---- logging ----

TEST_F(SecureStorage, ItemContentsNeverReachThePlatformLog)
{
    const std::string secret = "SECRET-d6c1f0e2-access-token";
    ASSERT_EQ(SS_ERROR_NONE, Write("log.item", secret, cred_));
    EXPECT_EQ(secret, Read("log.item", cred_).data);
    ss_credential_t other = MakeCredential(1);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("log.item", other).rc);
    std::string file = ReadWholeFile(ItemPath("log.item"));
    file[30] = static_cast<char>(file[30] ^ 1);
    WriteWholeFile(ItemPath("log.item"), file);
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, Read("log.item", cred_).rc);
    EXPECT_EQ(SS_ERROR_NONE, ss_delete("log.item", &cred_, 0));

    EXPECT_FALSE(log().Contains(secret));
    EXPECT_FALSE(log().Contains("SECRET"));
}

} // namespace
