// sso-platform ss: put, get and remove secure-storage items. Item contents
// pass between the store and stdin/stdout or a file only; messages name the
// item id and never show its contents.
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <glib.h>

#include "cli.h"
#include "ss_manager.h"
#include "sso_deployment.h"
#include "tool_json.h"

namespace ssoplatform {

namespace {

// Holds item contents and wipes them when it goes away.
class SecretBuffer {
public:
    SecretBuffer() = default;
    ~SecretBuffer() { Wipe(); }
    SecretBuffer(const SecretBuffer &) = delete;
    SecretBuffer &operator=(const SecretBuffer &) = delete;

    std::vector<unsigned char> &bytes() { return bytes_; }

    void Wipe()
    {
        if (!bytes_.empty())
            explicit_bzero(bytes_.data(), bytes_.size());
        bytes_.clear();
    }

private:
    std::vector<unsigned char> bytes_;
};

// Turns a library result into the tool's error, naming the item.
void Check(int rc, const std::string &item)
{
    CheckResult(
        rc, SS_ERROR_NONE, item,
        {{SS_ERROR_INVALID_PARAMETER, true,
          "invalid item id '%s' (1 to 255 bytes, no control characters)"},
         {SS_ERROR_NO_ITEM, false, "item '%s' does not exist"},
         {SS_ERROR_AUTHENTICATION, false,
          "item '%s' failed authentication (tampered, truncated, or written with another "
          "credential)"},
         {SS_ERROR_IO, false,
          "item '%s': the secure storage under the platform root is not accessible"},
         {SS_ERROR_OUT_OF_MEMORY, false, "item '%s': out of memory"},
         {SS_ERROR_CRYPTO, false, "item '%s': cipher failure or missing or unusable device key"},
         {SS_ERROR_TOO_LARGE, false,
          "item '%s': contents above the limit of " + std::to_string(SS_MAX_ITEM_SIZE) + " bytes"},
         {SS_ERROR_NOT_INITIALIZED, false, "item '%s': credential not initialised"},
         {SS_ERROR_ACCESS_DENIED, false,
          "item '%s': access denied to uid " + std::to_string(getuid()) +
              " (a package's data is for the package's user; writes, and every other item, for "
              "the SSO service's user and root)"},
         {SS_ERROR_SERVICE_UNAVAILABLE, false,
          "item '%s': the storage service (sso-storaged) does not answer under the platform "
          "root"}},
        "item '%s': secure storage error %d");
}

uint32_t ParseModuleId(const std::string &text)
{
    errno = 0;
    char *end = nullptr;
    unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ' || *end != '\0' ||
        errno != 0 || v > UINT32_MAX)
        throw UsageError("invalid --module-id '" + text + "' (a 32-bit number, e.g. 0x53534F41)");
    return static_cast<uint32_t>(v);
}

// 32 hex digits, optionally with the usual 8-4-4-4-12 hyphens.
ss_uuid_t ParseUuid(const std::string &text)
{
    std::string digits;
    for (char c : text)
        if (c != '-')
            digits += c;
    bool ok = digits.size() == 32;
    for (char c : digits)
        ok = ok && ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
    if (!ok)
        throw UsageError("invalid --uuid '" + text + "' (32 hexadecimal digits)");
    ss_uuid_t uuid;
    uuid.word[0] = std::strtoull(digits.substr(0, 16).c_str(), nullptr, 16);
    uuid.word[1] = std::strtoull(digits.substr(16).c_str(), nullptr, 16);
    return uuid;
}

// The deployment's credential unless the options name another.
ss_credential_t Credential(const Args &args)
{
    uint32_t module_id = SSO_DEPLOY_SS_MODULE_ID;
    ss_uuid_t uuid;
    uuid.word[0] = SSO_DEPLOY_SS_UUID_WORD0;
    uuid.word[1] = SSO_DEPLOY_SS_UUID_WORD1;
    if (args.Has("--module-id"))
        module_id = ParseModuleId(args.Get("--module-id"));
    if (args.Has("--uuid"))
        uuid = ParseUuid(args.Get("--uuid"));
    ss_credential_t credential;
    if (ss_init_credential(&credential, module_id, &uuid, SS_FLAG_INIT) != SS_ERROR_NONE)
        throw Failure("cannot initialise the secure-storage credential");
    return credential;
}

// Reads a whole stream, refusing more than the store takes.
void ReadStream(std::FILE *in, const std::string &what, SecretBuffer &out)
{
    std::vector<unsigned char> &bytes = out.bytes();
    unsigned char chunk[65536];
    for (;;) {
        std::size_t n = std::fread(chunk, 1, sizeof(chunk), in);
        bytes.insert(bytes.end(), chunk, chunk + n);
        if (bytes.size() > SS_MAX_ITEM_SIZE) {
            explicit_bzero(chunk, sizeof(chunk));
            throw Failure(what + " holds more than the limit of " +
                          std::to_string(SS_MAX_ITEM_SIZE) + " bytes");
        }
        if (n < sizeof(chunk))
            break;
    }
    explicit_bzero(chunk, sizeof(chunk));
    if (std::ferror(in))
        throw Failure("cannot read " + what + ": " + std::strerror(errno));
}

int Put(const Args &args)
{
    const std::string &item = args.positional[0];
    std::string source = args.positional.size() > 1 ? args.positional[1] : "-";
    ss_credential_t credential = Credential(args);
    SecretBuffer data;
    if (source == "-") {
        ReadStream(stdin, "stdin", data);
    } else {
        std::FILE *in = std::fopen(source.c_str(), "rb");
        if (!in)
            throw Failure("cannot open '" + source + "': " + std::strerror(errno));
        try {
            ReadStream(in, "'" + source + "'", data);
        } catch (...) {
            std::fclose(in);
            throw;
        }
        std::fclose(in);
    }
    std::vector<unsigned char> &bytes = data.bytes();
    Check(ss_write(item.c_str(), bytes.empty() ? nullptr : bytes.data(), bytes.size(), &credential,
                   0),
          item);
    return kExitOk;
}

int Get(const Args &args)
{
    const std::string &item = args.positional[0];
    ss_credential_t credential = Credential(args);
    unsigned char *buffer = nullptr;
    std::size_t length = 0;
    Check(ss_read(&buffer, &length, nullptr, nullptr, item.c_str(), &credential,
                  SS_FLAG_READ | SS_FLAG_INTEGRITY),
          item);
    if (JsonOutput()) {
        // The bytes may be anything: base64 in the document.
        gchar *encoded = g_base64_encode(buffer, length);
        ss_free_buffer(buffer);
        Json::Value out(Json::objectValue);
        out["item"] = item;
        out["size"] = static_cast<Json::UInt64>(length);
        out["base64"] = encoded;
        g_free(encoded);
        ssotools::PrintJson(out);
        return kExitOk;
    }
    bool ok = std::fwrite(buffer, 1, length, stdout) == length;
    ss_free_buffer(buffer);
    ok = std::fflush(stdout) == 0 && ok;
    if (!ok)
        throw Failure("cannot write to stdout: " + std::string(std::strerror(errno)));
    return kExitOk;
}

int Remove(const Args &args)
{
    const std::string &item = args.positional[0];
    ss_credential_t credential = Credential(args);
    Check(ss_delete(item.c_str(), &credential, 0), item);
    return kExitOk;
}

const std::vector<Option> &CredentialOptions()
{
    static const std::vector<Option> options = {
        {"--module-id", "N", "Use module id N (decimal or 0x hex) instead of the deployment's"},
        {"--uuid", "HEX32", "Use this 128-bit identifier (32 hex digits) instead"},
    };
    return options;
}

} // namespace

const Group &SsGroup()
{
    static const Group group = {
        "ss",
        "Put, get and remove secure-storage items",
        "Items are kept encrypted and authenticated by the storage service\n"
        "(sso-storaged, which must run for the platform root), sealed with the\n"
        "deployment's credential (module id and uuid) unless --module-id or --uuid\n"
        "names another. An item written with one credential does not read under\n"
        "another. The service decides by the user running the command: put and rm\n"
        "are for the SSO service's user and root; get also serves the account\n"
        "document to anyone and a package's data to the package's user.\n"
        "\n"
        "Examples:\n"
        "  sso-platform ss put sso/accounts accounts.json\n"
        "  sso-platform ss get sso/accounts > accounts.json\n"
        "  sso-platform ss rm sso/accounts",
        {
            {"put", "ITEM_ID [FILE|-] [--module-id N] [--uuid HEX32]",
             "Write an item from a file or stdin",
             "Stores the bytes of FILE, or of stdin when FILE is '-' or omitted, as the\n"
             "item, replacing any previous contents atomically. The first write on a\n"
             "device creates its device key.\n"
             "\n"
             "Examples:\n"
             "  sso-platform ss put sso/accounts accounts.json\n"
             "  printf 'secret' | sso-platform ss put app/token\n"
             "  sso-platform ss put app/token - --module-id 0x1234 < token.bin",
             CredentialOptions(), 1, 2, Put},
            {"get", "ITEM_ID [--module-id N] [--uuid HEX32]", "Write an item's bytes to stdout",
             "Writes the item's contents to stdout exactly, with nothing added. Fails\n"
             "with status 1 when the item does not exist or does not authenticate under\n"
             "the credential. With --json: {\"item\": ID, \"size\": N, \"base64\": B64}.\n"
             "\n"
             "Examples:\n"
             "  sso-platform ss get sso/accounts > accounts.json\n"
             "  sso-platform ss get app/token --uuid 00112233445566778899aabbccddeeff",
             CredentialOptions(), 1, 1, Get},
            {"rm", "ITEM_ID", "Remove an item",
             "Removes the item whatever credential sealed it. Fails with status 1 when\n"
             "the item does not exist.\n"
             "\n"
             "Example:\n"
             "  sso-platform ss rm sso/accounts",
             CredentialOptions(), 1, 1, Remove},
        },
    };
    return group;
}

} // namespace ssoplatform
