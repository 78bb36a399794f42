// sso-platform pkg: register, remove and show the packages of the device:
// which applications a package holds, the certificate it was signed with and
// the user its processes run as.
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli.h"
#include "package_manager.h"
#include "tool_json.h"
#include "package_manager_admin.h"

namespace ssoplatform {

namespace {

// The option parser keeps one value per option; "--app" may be repeated, so
// RunPkgGroup collects every value here before the command runs.
std::vector<std::string> g_appIds;

void Check(int rc, const std::string &package_id)
{
    CheckResult(
        rc, PACKAGE_MANAGER_ERROR_NONE, package_id,
        {{PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, true,
          "invalid package '%s' (ids are [A-Za-z0-9_.-], not starting with '.'; app ids hold no "
          "spaces)"},
         {PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, false, "package '%s' is not registered"},
         {PACKAGE_MANAGER_ERROR_IO_ERROR, false,
          "package '%s': the entry is malformed or the registry is not accessible"},
         {PACKAGE_MANAGER_ERROR_OUT_OF_MEMORY, false, "package '%s': out of memory"},
         {PACKAGE_MANAGER_ERROR_UID_IN_USE, false,
          "package '%s': the user id belongs to another package"},
         {PACKAGE_MANAGER_ERROR_NO_UID, false,
          "package '%s': no user id (none free in " + std::to_string(PACKAGE_MANAGER_UID_MIN) +
              ".." + std::to_string(PACKAGE_MANAGER_UID_MAX) + ", or none in the entry)"}},
        "package '%s': package manager error %d");
}

// A certificate file in PEM or DER, as DER.
std::vector<unsigned char> ReadCertificate(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw Failure("cannot read certificate '" + path + "'");
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    X509 *cert = nullptr;
    if (BIO *bio = BIO_new_mem_buf(data.data(), static_cast<int>(data.size()))) {
        cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
    }
    if (cert == nullptr) {
        const unsigned char *p = reinterpret_cast<const unsigned char *>(data.data());
        cert = d2i_X509(nullptr, &p, static_cast<long>(data.size()));
    }
    if (cert == nullptr)
        throw Failure("'" + path + "' is not an X.509 certificate (PEM or DER)");
    int len = i2d_X509(cert, nullptr);
    std::vector<unsigned char> der(len > 0 ? static_cast<size_t>(len) : 0);
    unsigned char *out = der.data();
    if (len <= 0 || i2d_X509(cert, &out) != len) {
        X509_free(cert);
        throw Failure("cannot encode certificate '" + path + "'");
    }
    X509_free(cert);
    return der;
}

// A user id for a package: a number, never root's.
uid_t ParseUid(const std::string &text)
{
    errno = 0;
    char *end = nullptr;
    unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] < '0' || text[0] > '9' || *end != '\0' || errno != 0 || v == 0 ||
        v >= static_cast<unsigned long long>(static_cast<uid_t>(-1)))
        throw UsageError("invalid --uid '" + text + "' (a user id above 0)");
    return static_cast<uid_t>(v);
}

int Add(const Args &args)
{
    const std::string &package_id = args.positional[0];
    if (g_appIds.empty())
        throw UsageError("pkg add needs at least one --app APP_ID");
    std::vector<const char *> apps;
    for (const std::string &app : g_appIds)
        apps.push_back(app.c_str());
    std::vector<unsigned char> der;
    std::vector<package_manager_cert_s> certs;
    if (args.Has("--author-cert")) {
        der = ReadCertificate(args.Get("--author-cert"));
        certs.push_back({PACKAGE_INFO_AUTHOR_SIGNER_CERT, der.data(), der.size()});
    }
    uid_t uid = PACKAGE_MANAGER_UID_AUTO;
    if (args.Has("--uid"))
        uid = ParseUid(args.Get("--uid"));
    Check(package_manager_add_package_as(package_id.c_str(), apps.data(), apps.size(),
                                         certs.empty() ? nullptr : certs.data(), certs.size(), uid,
                                         nullptr),
          package_id);
    return kExitOk;
}

int Remove(const Args &args)
{
    const std::string &package_id = args.positional[0];
    Check(package_manager_remove_package(package_id.c_str()), package_id);
    return kExitOk;
}

const char *CertTypeName(package_cert_type_e type)
{
    switch (type) {
    case PACKAGE_INFO_AUTHOR_ROOT_CERT:
        return "author-root";
    case PACKAGE_INFO_AUTHOR_INTERMEDIATE_CERT:
        return "author-intermediate";
    case PACKAGE_INFO_AUTHOR_SIGNER_CERT:
        return "author-signer";
    case PACKAGE_INFO_DISTRIBUTOR_ROOT_CERT:
        return "distributor-root";
    case PACKAGE_INFO_DISTRIBUTOR_INTERMEDIATE_CERT:
        return "distributor-intermediate";
    case PACKAGE_INFO_DISTRIBUTOR_SIGNER_CERT:
        return "distributor-signer";
    case PACKAGE_INFO_DISTRIBUTOR2_ROOT_CERT:
        return "distributor2-root";
    case PACKAGE_INFO_DISTRIBUTOR2_INTERMEDIATE_CERT:
        return "distributor2-intermediate";
    case PACKAGE_INFO_DISTRIBUTOR2_SIGNER_CERT:
        return "distributor2-signer";
    }
    return "unknown";
}

int Show(const Args &args)
{
    const std::string &package_id = args.positional[0];
    std::string out = "package\t" + package_id + "\n";
    Check(package_manager_foreach_app(
              package_id.c_str(),
              [](const char *app_id, void *ud) {
                  *static_cast<std::string *>(ud) += std::string("app\t") + app_id + "\n";
                  return true;
              },
              &out),
          package_id);
    package_info_h handle = nullptr;
    Check(package_info_create(package_id.c_str(), &handle), package_id);
    int rc = package_info_foreach_cert_info(
        handle,
        [](package_info_h, package_cert_type_e type, const char *value, void *ud) {
            *static_cast<std::string *>(ud) +=
                std::string("cert\t") + CertTypeName(type) + "\t" + value + "\n";
            return true;
        },
        &out);
    package_info_destroy(handle);
    Check(rc, package_id);
    uid_t uid = 0;
    rc = package_manager_get_package_uid(package_id.c_str(), &uid);
    if (rc == PACKAGE_MANAGER_ERROR_NONE)
        out += "uid\t" + std::to_string(uid) + "\n";
    else if (rc != PACKAGE_MANAGER_ERROR_NO_UID)
        Check(rc, package_id);
    if (JsonOutput()) {
        // The same lines, as {"package", "apps", "certs": [{"type", "base64"}], "uid"}.
        Json::Value doc(Json::objectValue);
        doc["package"] = package_id;
        doc["apps"] = Json::Value(Json::arrayValue);
        doc["certs"] = Json::Value(Json::arrayValue);
        if (rc == PACKAGE_MANAGER_ERROR_NONE)
            doc["uid"] = static_cast<Json::UInt>(uid);
        std::size_t start = 0;
        for (std::size_t nl; (nl = out.find('\n', start)) != std::string::npos; start = nl + 1) {
            const std::string line = out.substr(start, nl - start);
            const std::size_t tab = line.find('\t');
            const std::string kind = line.substr(0, tab), rest = line.substr(tab + 1);
            if (kind == "app") {
                doc["apps"].append(rest);
            } else if (kind == "cert") {
                Json::Value cert(Json::objectValue);
                cert["type"] = rest.substr(0, rest.find('\t'));
                cert["base64"] = rest.substr(rest.find('\t') + 1);
                doc["certs"].append(cert);
            }
        }
        ssotools::PrintJson(doc);
        return kExitOk;
    }
    std::fputs(out.c_str(), stdout);
    return kExitOk;
}

} // namespace

const Group &PkgGroup()
{
    static const Group group = {
        "pkg",
        "Register, remove and show packages and their signer certificates",
        "A package groups applications and carries the certificate it was signed\n"
        "with. Its processes run as a user of its own, which the platform\n"
        "recognises them by (the storage service gives a package's data to that\n"
        "user only). Each package is one file under <root>/packages. Changes take\n"
        "effect at the next look-up; nothing caches them.\n"
        "\n"
        "Examples:\n"
        "  sso-platform pkg add org.example.pkg --app org.example.tv.app --author-cert cert.pem\n"
        "  sso-platform pkg show org.example.pkg\n"
        "  sso-platform pkg rm org.example.pkg",
        {
            {"add",
             "PACKAGE_ID --app APP_ID [--app APP_ID ...] [--author-cert FILE] [--uid UID]",
             "Register a package",
             "Registers the package with its applications, replacing any previous\n"
             "registration atomically. --app may be repeated; at least one is needed.\n"
             "--author-cert is an X.509 certificate in PEM or DER; it is stored in DER\n"
             "as the author signer certificate (type 2).\n"
             "The package's processes run as user UID, which no other package may have\n"
             "(no passwd entry is needed). Without --uid the package keeps the one it\n"
             "had, or gets the lowest free one from 70000 to 79999; 'pkg show' prints it.\n"
             "\n"
             "Examples:\n"
             "  sso-platform pkg add org.example.pkg --app org.example.tv.app\n"
             "  sso-platform pkg add org.example.pkg --app a.one --app a.two --author-cert c.der\n"
             "  sso-platform pkg add org.example.pkg --app org.example.tv.app --uid 70100",
             {{"--app", "APP_ID", "An application of the package (repeatable)"},
              {"--author-cert", "FILE", "The author signer certificate (PEM or DER)"},
              {"--uid", "UID", "The user id of the package's processes"}},
             1,
             1,
             Add},
            {"rm",
             "PACKAGE_ID",
             "Remove a package",
             "Removes the package. Fails with status 1 when it is not registered.\n"
             "\n"
             "Example:\n"
             "  sso-platform pkg rm org.example.pkg",
             {},
             1,
             1,
             Remove},
            {"show",
             "PACKAGE_ID",
             "Print a package's applications and certificates",
             "Prints \"package\\tID\", one \"app\\tAPP_ID\" line per application, one\n"
             "\"cert\\tTYPE\\tBASE64\" line per certificate (TYPE e.g. author-signer,\n"
             "BASE64 the DER encoding) and \"uid\\tUID\", the user of its processes. Fails\n"
             "with status 1 when it is not registered.\n"
             "With --json: {\"package\": ID, \"apps\": [APP_ID...], \"certs\":\n"
             "[{\"type\": TYPE, \"base64\": BASE64}...], \"uid\": UID}.\n"
             "\n"
             "Example:\n"
             "  sso-platform pkg show org.example.pkg",
             {},
             1,
             1,
             Show},
        },
    };
    return group;
}

int RunPkgGroup(const std::vector<std::string> &argv)
{
    g_appIds.clear();
    for (std::size_t i = 0; i < argv.size() && argv[i] != "--"; ++i) {
        if (argv[i] == "--app" && i + 1 < argv.size())
            g_appIds.push_back(argv[++i]);
        else if (argv[i].compare(0, 6, "--app=") == 0)
            g_appIds.push_back(argv[i].substr(6));
    }
    return RunGroup(PkgGroup(), argv);
}

} // namespace ssoplatform
