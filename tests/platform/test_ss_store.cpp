// The storage service's sealed store in process, where the service cannot
// run at all: a missing root, a root or store directory that is a plain file.
// Each operation answers with its code, never invents the root, and never
// replaces what blocks it.
#include <ss_manager.h>
#include <ss_store.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "sso_test_harness.h"
#include "storage_test_util.h"

namespace {

using sstest::ModeOf;
using sstest::ReadWholeFile;
using sstest::WriteWholeFile;

ss_credential_t Credential()
{
    // The store uses the module id and uuid only.
    ss_credential_t c;
    std::memset(&c, 0, sizeof(c));
    c.module_id = 0x53534F41u;
    c.uuid.word[0] = 1;
    c.uuid.word[1] = 2;
    return c;
}

int Write(const char *id, const std::string &data)
{
    ss_credential_t c = Credential();
    return ss_store_write(id, reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                          &c);
}

int Read(const char *id, std::string *out = nullptr)
{
    ss_credential_t c = Credential();
    unsigned char *buffer = nullptr;
    size_t length = 0;
    int rc = ss_store_read(id, &c, &buffer, &length);
    if (rc == SS_ERROR_NONE) {
        if (out)
            out->assign(reinterpret_cast<char *>(buffer), length);
        ss_store_free(buffer, length);
    }
    return rc;
}

class SsStore : public ssotest::RootTest {
protected:
    std::string StoreDir() const { return root_.path() + "/secure-storage"; }
    void PointRootAt(const std::string &path) { setenv("SSO_PLATFORM_ROOT", path.c_str(), 1); }
};

TEST_F(SsStore, PrepareMakesTheStoreWithItsModesAndTightensLooserOnes)
{
    ASSERT_EQ(0, mkdir(StoreDir().c_str(), 0777));
    ASSERT_EQ(0, chmod(StoreDir().c_str(), 0777));
    ASSERT_EQ(SS_ERROR_NONE, ss_store_prepare());
    EXPECT_EQ(0711u, ModeOf(StoreDir()));
    EXPECT_EQ(0700u, ModeOf(StoreDir() + "/items"));
    std::string value;
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "sealed"));
    ASSERT_EQ(SS_ERROR_NONE, Read("item", &value));
    EXPECT_EQ("sealed", value);
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/device.key"));
    EXPECT_EQ(0600u, ModeOf(StoreDir() + "/items/item"));
}

TEST_F(SsStore, AMissingRootFailsWithIoAndIsNotCreated)
{
    const std::string missing = root_.path() + "/does-not-exist";
    PointRootAt(missing);
    EXPECT_EQ(SS_ERROR_IO, ss_store_prepare());
    EXPECT_EQ(SS_ERROR_IO, Write("item", "x"));
    EXPECT_EQ(SS_ERROR_NO_ITEM, Read("item"));
    struct stat st;
    EXPECT_NE(0, stat(missing.c_str(), &st)) << "the root was invented";
}

TEST_F(SsStore, ARootThatIsARegularFileFailsWithIo)
{
    WriteWholeFile(root_.path() + "/plain-file", "not a directory");
    PointRootAt(root_.path() + "/plain-file");
    EXPECT_EQ(SS_ERROR_IO, ss_store_prepare());
    EXPECT_EQ(SS_ERROR_IO, Write("item", "x"));
    EXPECT_EQ(SS_ERROR_IO, Read("item"));
    EXPECT_EQ(SS_ERROR_IO, ss_store_delete("item"));
}

TEST_F(SsStore, AStoreBlockedByARegularFileFailsWithIoAndStays)
{
    WriteWholeFile(StoreDir(), "not a directory");
    EXPECT_EQ(SS_ERROR_IO, ss_store_prepare());
    EXPECT_EQ(SS_ERROR_IO, Write("item", "x"));
    EXPECT_EQ(SS_ERROR_IO, Read("item"));
    ss_credential_t c = Credential();
    EXPECT_EQ(SS_ERROR_IO, ss_store_read("item", &c, nullptr, nullptr));
    EXPECT_EQ(SS_ERROR_IO, ss_store_delete("item"));
    EXPECT_EQ("not a directory", ReadWholeFile(StoreDir()));
}

TEST_F(SsStore, FreeingANullBufferIsHarmless)
{
    ss_store_free(nullptr, 0);
}

} // namespace
