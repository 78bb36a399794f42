// The built shared library as an application sees it: what it exports, its
// SONAME, and what happens at load and unload.
#include <dlfcn.h>

#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>

#include "sso_test_harness.h"

#ifndef SSO_API_LIBRARY
#error "SSO_API_LIBRARY must name the built libsso_api.so"
#endif

namespace {

using SharedLibrary = ssotest::RootTest;

TEST_F(SharedLibrary, ExportsOnlyTheApiSymbols)
{
    auto result = ssotest::RunCommand({"nm", "-D", "-C", "--defined-only", SSO_API_LIBRARY});
    ASSERT_EQ(result.status, 0);
    std::istringstream lines(result.out);
    std::string line;
    int exported = 0;
    // C names, and the two C++ reads of raw service data (demangled).
    const std::regex api(
        "^(sso_[A-Za-z0-9_]+|get_size_of_sso_login_info_s|"
        "sso_private_get_(public_account_data|extracted_application_data)\\(.*\\))$");
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string address, type, name;
        fields >> address >> type;
        std::getline(fields, name); // demangled names hold blanks
        name.erase(0, name.find_first_not_of(' '));
        if (name.empty()) { // "<type> <name>" without an address
            name = type;
            type = address;
        }
        if (type == "A") // the version node itself
            continue;
        name = name.substr(0, name.find('@')); // drop the version suffix
        ++exported;
        EXPECT_TRUE(std::regex_match(name, api)) << "unexpected export: " << line;
    }
    EXPECT_GT(exported, 0);
}

TEST_F(SharedLibrary, HasAVersionedSoname)
{
    auto result = ssotest::RunCommand({"readelf", "-d", SSO_API_LIBRARY});
    ASSERT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("Library soname: [libsso_api.so.1]"), std::string::npos)
        << result.out;
}

TEST_F(SharedLibrary, LoadMarksTheClientAliveAndUnloadMarksItTerminated)
{
    setenv("SSO_PLATFORM_APP_ID", "org.example.loader", 1);
    void *handle = dlopen(SSO_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_TRUE(log().Contains("m_bClientAlive [1]"));
    EXPECT_TRUE(log().Contains("m_appId[org.example.loader] Alive[1]"));

    using SizeFn = int (*)();
    auto size = reinterpret_cast<SizeFn>(dlsym(handle, "get_size_of_sso_login_info_s"));
    ASSERT_NE(size, nullptr);
    EXPECT_EQ(size(), 1536);
    EXPECT_EQ(dlsym(handle, "_ZN10SSOAPIUtil13IsClientAliveEv"), nullptr)
        << "internal symbols must not be reachable";

    log().Clear();
    ASSERT_EQ(dlclose(handle), 0);
    auto lines = log().Lines();
    ASSERT_FALSE(lines.empty()) << "the library was not unloaded";
    EXPECT_NE(lines[0].find("SetClientToTerminated("), std::string::npos) << lines[0];
    EXPECT_TRUE(log().Contains("m_appId[org.example.loader] Alive[0]"));
    unsetenv("SSO_PLATFORM_APP_ID");
}

} // namespace
