// What the platform reads is never waited on: a FIFO or a device in place of
// a settings key, a feature flag, an application or package entry, or a
// marker file is refused at once with the reader's error code and a log line
// that names it.
#include <app_control_registry.h>
#include <devfs.h>
#include <dlog.h>
#include <package_manager.h>
#include <sys/stat.h>
#include <system_info.h>
#include <unistd.h>
#include <vconf.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "special_files.h"
#include "sso_test_harness.h"

namespace {

using specialfiles::ChildResult;
using specialfiles::FileMadeBy;
using specialfiles::Kind;
using specialfiles::KindText;
using specialfiles::MakeSpecial;
using specialfiles::ReplaceBySpecial;
using specialfiles::RunInChild;

// One reader of the platform: how its file comes into being (through the
// platform's own API, so the test does not depend on the store's layout, or
// at the documented path), and the read with the code it must fail with.
struct Reader {
    const char *name;
    // Makes the entry; returns its file, or "" when the API made none.
    std::function<std::string(ssotest::PlatformRoot &)> place;
    std::function<int()> read;
    int expected;
};

void PrintTo(const Reader &r, std::ostream *os)
{
    *os << r.name;
}

const Reader kReaders[] = {
    {"SettingsInt",
     [](ssotest::PlatformRoot &root) {
         return FileMadeBy(root, [] { vconf_set_int("db/sso/login_status", 1); });
     },
     [] {
         int value = 7;
         int rc = vconf_get_int("db/sso/login_status", &value);
         return value == 7 ? rc : 1000; // and the output is left alone
     },
     VCONF_ERROR_FILE_OPEN},
    {"SettingsString",
     [](ssotest::PlatformRoot &root) {
         return FileMadeBy(root, [] { vconf_set_str("db/sso/display_name", "someone"); });
     },
     [] {
         char *text = vconf_get_str("db/sso/display_name");
         int rc = text == nullptr ? 0 : 1;
         free(text);
         return rc;
     },
     0},
    {"FeatureFlag",
     [](ssotest::PlatformRoot &root) {
         return FileMadeBy(root, [] {
             system_info_set_custom_bool("com.veltra/featureconf/account.signin_mandatory", true);
         });
     },
     [] {
         bool value = false;
         return system_info_get_custom_bool("com.veltra/featureconf/account.signin_mandatory",
                                            &value);
     },
     SYSTEM_INFO_ERROR_IO_ERROR},
    {"ApplicationEntry",
     [](ssotest::PlatformRoot &root) {
         return FileMadeBy(root,
                           [] { app_control_register_app("org.example.special", "/bin/true"); });
     },
     [] {
         char *exec = nullptr;
         int rc = app_control_get_app_exec("org.example.special", &exec);
         free(exec);
         return rc;
     },
     APP_CONTROL_ERROR_IO_ERROR},
    {"PackageEntry",
     [](ssotest::PlatformRoot &root) {
         // At its documented place: registering a package takes more than
         // this test is about.
         mkdir((root.path() + "/packages").c_str(), 0755);
         const std::string path = root.path() + "/packages/org.example.special";
         std::ofstream(path) << "";
         return path;
     },
     [] {
         package_info_h info = nullptr;
         int rc = package_info_create("org.example.special", &info);
         if (info != nullptr)
             package_info_destroy(info);
         return rc;
     },
     PACKAGE_MANAGER_ERROR_IO_ERROR},
    {"MarkerFile",
     [](ssotest::PlatformRoot &root) {
         root.CreateDeviceFile("/etc/debug");
         return root.DevicePath("/etc/debug");
     },
     [] {
         int rc = devfs_marker_present("/etc/debug");
         return rc == -1 && errno == EINVAL ? -1 : 1000 + rc;
     },
     -1},
};

class SpecialFile : public ssotest::RootTest,
                    public ::testing::WithParamInterface<std::tuple<Reader, Kind>> {};

TEST_P(SpecialFile, IsRefusedAtOnceWithTheReadersCodeAndALogLine)
{
    const Reader &reader = std::get<0>(GetParam());
    const Kind kind = std::get<1>(GetParam());
    const std::string path = reader.place(root_);
    ASSERT_FALSE(path.empty()) << "the API made no single file for the entry";
    ReplaceBySpecial(kind, path);

    ChildResult r = RunInChild(reader.read);
    ASSERT_TRUE(r.ended) << reader.name << " blocked on " << KindText(kind);
    EXPECT_EQ(r.value, reader.expected);
    EXPECT_EQ(log().LinesWith({"SSO_PLATFORM", path, KindText(kind)}).size(), 1u) << log().Text();
}

std::string SpecialFileName(const ::testing::TestParamInfo<std::tuple<Reader, Kind>> &info)
{
    return std::string(std::get<0>(info.param).name) +
           (std::get<1>(info.param) == Kind::Fifo ? "Fifo" : "Device");
}

INSTANTIATE_TEST_SUITE_P(Platform, SpecialFile,
                         ::testing::Combine(::testing::ValuesIn(kReaders),
                                            ::testing::Values(Kind::Fifo, Kind::Device)),
                         SpecialFileName);

class SpecialFiles : public ssotest::RootTest {};

TEST_F(SpecialFiles, ASettingsWriteReplacesAFifoWithoutReadingIt)
{
    const std::string path =
        FileMadeBy(root_, [] { ASSERT_EQ(vconf_set_int("db/sso/login_status", 0), VCONF_OK); });
    ASSERT_FALSE(path.empty());
    ReplaceBySpecial(Kind::Fifo, path);

    ChildResult r = RunInChild([] { return vconf_set_int("db/sso/login_status", 1); });
    ASSERT_TRUE(r.ended) << "the write blocked on the FIFO";
    EXPECT_EQ(r.value, VCONF_OK);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    int value = 0;
    EXPECT_EQ(vconf_get_int("db/sso/login_status", &value), VCONF_OK);
    EXPECT_EQ(value, 1);
}

TEST_F(SpecialFiles, ALogFileThatIsAFifoNobodyReadsDoesNotHangTheProcess)
{
    const std::string fifo = root_.path() + "/log.fifo";
    MakeSpecial(Kind::Fifo, fifo);
    ChildResult r = RunInChild([&] {
        setenv("SSO_PLATFORM_LOG", ("file:" + fifo).c_str(), 1);
        dlog_reload_config();
        return dlog_print(DLOG_ERROR, "SSO_TEST", "a line nobody reads") > 0 ? 0 : 1;
    });
    EXPECT_TRUE(r.ended) << "the log's open blocked on the FIFO";
}

} // namespace
