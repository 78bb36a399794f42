#define _GNU_SOURCE
#include "ss_store.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include "ss_manager.h"
#include "ss_wire.h"
#include "sso_platform_common.h"

/*
 * Store layout, under the platform root, all of it the storage service's:
 *   secure-storage/               0711: others may reach the socket, not list
 *   secure-storage/device.key     32 random bytes, 0600, made once per device
 *   secure-storage/items/         0700
 *   secure-storage/items/<name>   one sealed item a file, 0600
 *
 * <name> is the item id with every byte outside [A-Za-z0-9_.-] (and a leading
 * '.') written as %XX, so it never contains '/' and never starts with the '.'
 * of the atomic writer's temporary files. An id whose encoding would not fit
 * a file name is stored as '~' and the hex SHA-256 of the id instead; '~' is
 * never produced by the encoding, so the two forms cannot collide.
 *
 * An item file is
 *   "SSOSS1\0\0" | 12-byte nonce | AES-256-GCM ciphertext | 16-byte tag
 * sealed under HKDF-SHA256(device key, info = label | module id | uuid). The
 * associated data binds the magic, the credential's module id and the item
 * id, so a file copied over another item's name or read under another
 * credential fails authentication.
 *
 * Nothing is cached between calls: the device key is read from disk every
 * time, so another process or thread creating it (or a test replacing the
 * root) is always seen. Nothing here logs; item contents must never reach a
 * log.
 */

#define STORE_DIR SS_WIRE_STORE_DIR
#define ITEMS_DIR STORE_DIR "/items"
#define KEY_FILE STORE_DIR "/device.key"
#define KEY_TEMP STORE_DIR "/.device.key.XXXXXX"
#define STORE_DIR_MODE 0711
#define DIR_MODE 0700
#define FILE_MODE 0600

#define MAX_ITEM_ID_LEN SS_WIRE_MAX_ITEM_ID_LEN
/* The atomic writer's temporary ".<name>.XXXXXX" must still fit NAME_MAX. */
#define MAX_FILE_NAME SSO_PLATFORM_MAX_FILE_NAME

#define DEVICE_KEY_LEN 32
#define ITEM_KEY_LEN 32
#define MAGIC_LEN 8
#define NONCE_LEN 12
#define TAG_LEN 16
#define HEADER_LEN (MAGIC_LEN + NONCE_LEN)
#define OVERHEAD (HEADER_LEN + TAG_LEN)
#define MAX_FILE_LEN ((size_t)SS_MAX_ITEM_SIZE + OVERHEAD)
/* Associated data: magic | module id (4) | id length (2) | id. */
#define MAX_AAD_LEN (MAGIC_LEN + 4 + 2 + MAX_ITEM_ID_LEN)

static const unsigned char item_magic[MAGIC_LEN] = {'S', 'S', 'O', 'S', 'S', '1', 0, 0};
static const char kdf_salt[] = "sso-platform secure-storage salt v1";
static const char kdf_label[] = "sso-platform secure-storage item key v1";

/* ---- byte helpers ---- */

static void put_be(unsigned char *p, uint64_t v, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i) {
        p[i] = (unsigned char)(v & 0xff);
        v >>= 8;
    }
}

/* ---- paths ---- */

/* Writes the file name of a (valid) item id into buf, MAX_FILE_NAME + 1 bytes. */
static int item_file_name(const char *item_id, char *buf)
{
    static const char hex[] = "0123456789abcdef";
    if (sso_platform_encode_name(item_id, buf) == 0)
        return SS_ERROR_NONE;
    unsigned char md[32];
    unsigned int md_len = 0;
    if (EVP_Digest(item_id, strlen(item_id), md, &md_len, EVP_sha256(), NULL) != 1 ||
        md_len != sizeof(md))
        return SS_ERROR_CRYPTO;
    buf[0] = '~';
    for (size_t i = 0; i < sizeof(md); ++i) {
        buf[1 + 2 * i] = hex[md[i] >> 4];
        buf[2 + 2 * i] = hex[md[i] & 0xf];
    }
    buf[1 + 2 * sizeof(md)] = '\0';
    return SS_ERROR_NONE;
}

static int item_path(const char *item_id, char *buf, size_t size)
{
    char name[MAX_FILE_NAME + 1];
    int rc = item_file_name(item_id, name);
    if (rc != SS_ERROR_NONE)
        return rc;
    char rel[sizeof(ITEMS_DIR) + 1 + sizeof(name)];
    snprintf(rel, sizeof(rel), "%s/%s", ITEMS_DIR, name);
    return sso_platform_path(buf, size, rel) == 0 ? SS_ERROR_NONE : SS_ERROR_IO;
}

static int io_error(int err)
{
    return err == ENOMEM ? SS_ERROR_OUT_OF_MEMORY : SS_ERROR_IO;
}

/* Makes the store directories for a write. The root itself must already
 * exist: a missing root is a misconfiguration, not something to paper over. */
static int prepare_store(void)
{
    struct stat st;
    if (stat(sso_platform_root(), &st) != 0 || !S_ISDIR(st.st_mode))
        return SS_ERROR_IO;
    char dir[PATH_MAX];
    if (sso_platform_path(dir, sizeof(dir), ITEMS_DIR) != 0)
        return SS_ERROR_IO;
    if (sso_platform_mkdirs(dir, DIR_MODE) != 0)
        return io_error(errno);
    return SS_ERROR_NONE;
}

/* ---- the device key ---- */

/* SS_ERROR_NONE, SS_ERROR_NO_ITEM when there is no key yet, or SS_ERROR_CRYPTO
 * for a key file that cannot be used (unreadable, wrong size). */
static int load_device_key(const char *path, unsigned char key[DEVICE_KEY_LEN])
{
    char *data = NULL;
    size_t len = 0;
    if (sso_platform_read_file(path, DEVICE_KEY_LEN, &data, &len) != 0) {
        if (errno == ENOENT)
            return SS_ERROR_NO_ITEM;
        return errno == ENOMEM ? SS_ERROR_OUT_OF_MEMORY : SS_ERROR_CRYPTO;
    }
    int rc = SS_ERROR_CRYPTO;
    if (len == DEVICE_KEY_LEN) {
        memcpy(key, data, DEVICE_KEY_LEN);
        rc = SS_ERROR_NONE;
    }
    OPENSSL_cleanse(data, len);
    free(data);
    return rc;
}

/* Publishes a fresh key with link(): the file appears complete or not at all,
 * and when two first writers race, link() lets exactly one win and the other
 * adopts the winner's key. Returns SS_ERROR_NO_ITEM when the winner's key
 * vanished again before it could be read (the caller retries). */
static int create_device_key(const char *path, unsigned char key[DEVICE_KEY_LEN])
{
    char tmp[PATH_MAX];
    if (sso_platform_path(tmp, sizeof(tmp), KEY_TEMP) != 0)
        return SS_ERROR_IO;
    if (RAND_bytes(key, DEVICE_KEY_LEN) != 1)
        return SS_ERROR_CRYPTO;
    int fd = mkostemp(tmp, O_CLOEXEC);
    if (fd < 0) {
        OPENSSL_cleanse(key, DEVICE_KEY_LEN);
        return io_error(errno);
    }
    int ok = fchmod(fd, FILE_MODE) == 0 && sso_platform_write_all(fd, key, DEVICE_KEY_LEN) == 0 &&
             fsync(fd) == 0;
    if (close(fd) != 0)
        ok = 0;
    int rc;
    if (!ok)
        rc = SS_ERROR_IO;
    else if (link(tmp, path) == 0)
        rc = SS_ERROR_NONE;
    else if (errno == EEXIST)
        rc = load_device_key(path, key);
    else
        rc = SS_ERROR_IO;
    unlink(tmp);
    if (rc != SS_ERROR_NONE)
        OPENSSL_cleanse(key, DEVICE_KEY_LEN);
    return rc;
}

/* Loads the device key, creating it first when create is set. Without
 * create, a missing key is SS_ERROR_NO_ITEM. */
static int device_key(int create, unsigned char key[DEVICE_KEY_LEN])
{
    char path[PATH_MAX];
    if (sso_platform_path(path, sizeof(path), KEY_FILE) != 0)
        return SS_ERROR_IO;
    for (int attempt = 0; attempt < 3; ++attempt) {
        int rc = load_device_key(path, key);
        if (rc != SS_ERROR_NO_ITEM || !create)
            return rc;
        rc = create_device_key(path, key);
        if (rc != SS_ERROR_NO_ITEM)
            return rc;
    }
    return SS_ERROR_CRYPTO;
}

/* The key of one credential: HKDF-SHA256 over the device key with the
 * credential in the info, so every credential seals under its own key. */
static int derive_item_key(const unsigned char device[DEVICE_KEY_LEN],
                           const ss_credential_t *credential, unsigned char out[ITEM_KEY_LEN])
{
    unsigned char info[sizeof(kdf_label) - 1 + 4 + 16];
    size_t label_len = sizeof(kdf_label) - 1;
    memcpy(info, kdf_label, label_len);
    put_be(info + label_len, credential->module_id, 4);
    put_be(info + label_len + 4, credential->uuid.word[0], 8);
    put_be(info + label_len + 12, credential->uuid.word[1], 8);

    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, (char *)"SHA256", 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, (void *)device, DEVICE_KEY_LEN),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, (void *)kdf_salt,
                                          sizeof(kdf_salt) - 1),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info, sizeof(info)),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF *kdf = EVP_KDF_fetch(NULL, "HKDF", NULL);
    EVP_KDF_CTX *ctx = kdf ? EVP_KDF_CTX_new(kdf) : NULL;
    int ok = ctx && EVP_KDF_derive(ctx, out, ITEM_KEY_LEN, params) == 1;
    EVP_KDF_CTX_free(ctx);
    EVP_KDF_free(kdf);
    if (!ok) {
        OPENSSL_cleanse(out, ITEM_KEY_LEN);
        return SS_ERROR_CRYPTO;
    }
    return SS_ERROR_NONE;
}

/* Device key then credential key, wiping the device key at once. */
static int credential_key(int create, const ss_credential_t *credential,
                          unsigned char key[ITEM_KEY_LEN])
{
    unsigned char device[DEVICE_KEY_LEN];
    int rc = device_key(create, device);
    if (rc == SS_ERROR_NONE) {
        rc = derive_item_key(device, credential, key);
        OPENSSL_cleanse(device, sizeof(device));
    }
    return rc;
}

/* ---- sealing ---- */

static size_t build_aad(unsigned char aad[MAX_AAD_LEN], const char *item_id, uint32_t module_id)
{
    size_t id_len = strlen(item_id);
    memcpy(aad, item_magic, MAGIC_LEN);
    put_be(aad + MAGIC_LEN, module_id, 4);
    put_be(aad + MAGIC_LEN + 4, id_len, 2);
    memcpy(aad + MAGIC_LEN + 6, item_id, id_len);
    return MAGIC_LEN + 6 + id_len;
}

/* Seals data into a new file image: magic, nonce, ciphertext, tag. */
static int seal(const unsigned char key[ITEM_KEY_LEN], const unsigned char *aad, size_t aad_len,
                const unsigned char *data, size_t len, unsigned char **out, size_t *out_len)
{
    unsigned char *file = malloc(OVERHEAD + len);
    if (!file)
        return SS_ERROR_OUT_OF_MEMORY;
    memcpy(file, item_magic, MAGIC_LEN);
    unsigned char *nonce = file + MAGIC_LEN;
    unsigned char *ct = file + HEADER_LEN;
    EVP_CIPHER_CTX *ctx = NULL;
    int n = 0;
    int ok = RAND_bytes(nonce, NONCE_LEN) == 1 && (ctx = EVP_CIPHER_CTX_new()) != NULL &&
             EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), NULL, NULL, NULL) == 1 &&
             EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, NONCE_LEN, NULL) == 1 &&
             EVP_EncryptInit_ex(ctx, NULL, NULL, key, nonce) == 1 &&
             EVP_EncryptUpdate(ctx, NULL, &n, aad, (int)aad_len) == 1;
    if (ok && len > 0)
        ok = EVP_EncryptUpdate(ctx, ct, &n, data, (int)len) == 1 && (size_t)n == len;
    ok = ok && EVP_EncryptFinal_ex(ctx, ct + len, &n) == 1 && n == 0 &&
         EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, TAG_LEN, ct + len) == 1;
    EVP_CIPHER_CTX_free(ctx);
    if (!ok) {
        OPENSSL_cleanse(file, OVERHEAD + len);
        free(file);
        return SS_ERROR_CRYPTO;
    }
    *out = file;
    *out_len = OVERHEAD + len;
    return SS_ERROR_NONE;
}

/* Cheap structural checks before any key is touched. */
static int check_sealed(const unsigned char *file, size_t len)
{
    if (len < OVERHEAD || memcmp(file, item_magic, MAGIC_LEN) != 0)
        return SS_ERROR_AUTHENTICATION;
    return SS_ERROR_NONE;
}

/* Authenticates and decrypts a file image. With out (room for the plaintext)
 * the plaintext lands there; without, it goes through a scratch buffer and is
 * dropped (validation). On any failure out is wiped: no partial plaintext. */
static int unseal(const unsigned char key[ITEM_KEY_LEN], const unsigned char *aad, size_t aad_len,
                  const unsigned char *file, size_t len, unsigned char *out)
{
    const unsigned char *nonce = file + MAGIC_LEN;
    const unsigned char *ct = file + HEADER_LEN;
    size_t ct_len = len - OVERHEAD;
    unsigned char tag[TAG_LEN];
    memcpy(tag, ct + ct_len, TAG_LEN);
    unsigned char scratch[4096];
    int n = 0;
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int ok = ctx && EVP_DecryptInit_ex(ctx, EVP_aes_256_gcm(), NULL, NULL, NULL) == 1 &&
             EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, NONCE_LEN, NULL) == 1 &&
             EVP_DecryptInit_ex(ctx, NULL, NULL, key, nonce) == 1 &&
             EVP_DecryptUpdate(ctx, NULL, &n, aad, (int)aad_len) == 1;
    if (!ok) {
        EVP_CIPHER_CTX_free(ctx);
        return SS_ERROR_CRYPTO;
    }
    for (size_t done = 0; ok && done < ct_len;) {
        size_t chunk = ct_len - done;
        if (!out && chunk > sizeof(scratch))
            chunk = sizeof(scratch);
        unsigned char *dst = out ? out + done : scratch;
        ok = EVP_DecryptUpdate(ctx, dst, &n, ct + done, (int)chunk) == 1 && (size_t)n == chunk;
        done += chunk;
    }
    int rc = SS_ERROR_CRYPTO;
    if (ok) {
        rc = EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, TAG_LEN, tag) == 1 &&
                     EVP_DecryptFinal_ex(ctx, scratch, &n) == 1
                 ? SS_ERROR_NONE
                 : SS_ERROR_AUTHENTICATION;
    }
    EVP_CIPHER_CTX_free(ctx);
    OPENSSL_cleanse(scratch, sizeof(scratch));
    if (rc != SS_ERROR_NONE && out)
        OPENSSL_cleanse(out, ct_len);
    return rc;
}

/* ---- item operations ---- */

static int read_error(int err)
{
    switch (err) {
    case ENOENT:
        return SS_ERROR_NO_ITEM;
    case EFBIG:
        /* Larger than any item this library writes. */
        return SS_ERROR_AUTHENTICATION;
    case ENOMEM:
        return SS_ERROR_OUT_OF_MEMORY;
    default:
        return SS_ERROR_IO;
    }
}

/* Reads and authenticates an item; hands the plaintext out only when buffer
 * is set. */
static int open_item(const char *item_id, const ss_credential_t *credential, unsigned char **buffer,
                     size_t *length)
{
    char path[PATH_MAX];
    int rc = item_path(item_id, path, sizeof(path));
    if (rc != SS_ERROR_NONE)
        return rc;
    char *file = NULL;
    size_t file_len = 0;
    if (sso_platform_read_file(path, MAX_FILE_LEN, &file, &file_len) != 0)
        return read_error(errno);
    const unsigned char *image = (const unsigned char *)file;
    rc = check_sealed(image, file_len);

    unsigned char key[ITEM_KEY_LEN];
    if (rc == SS_ERROR_NONE) {
        rc = credential_key(0, credential, key);
        if (rc == SS_ERROR_NO_ITEM)
            rc = SS_ERROR_CRYPTO; /* an item without a device key cannot be opened */
    }
    unsigned char *plain = NULL;
    size_t plain_len = rc == SS_ERROR_NONE ? file_len - OVERHEAD : 0;
    if (rc == SS_ERROR_NONE && buffer) {
        plain = malloc(plain_len + 1);
        if (!plain)
            rc = SS_ERROR_OUT_OF_MEMORY;
    }
    if (rc == SS_ERROR_NONE) {
        unsigned char aad[MAX_AAD_LEN];
        size_t aad_len = build_aad(aad, item_id, credential->module_id);
        rc = unseal(key, aad, aad_len, image, file_len, plain);
    }
    OPENSSL_cleanse(key, sizeof(key));
    free(file);
    if (rc != SS_ERROR_NONE) {
        free(plain); /* already wiped by unseal */
        return rc;
    }
    if (buffer) {
        plain[plain_len] = '\0';
        *buffer = plain;
        *length = plain_len;
    }
    return SS_ERROR_NONE;
}

int ss_store_prepare(void)
{
    struct stat st;
    if (stat(sso_platform_root(), &st) != 0 || !S_ISDIR(st.st_mode))
        return SS_ERROR_IO;
    char store[PATH_MAX], items[PATH_MAX];
    if (sso_platform_path(store, sizeof(store), STORE_DIR) != 0 ||
        sso_platform_path(items, sizeof(items), ITEMS_DIR) != 0)
        return SS_ERROR_IO;
    if (sso_platform_mkdirs(items, DIR_MODE) != 0)
        return io_error(errno);
    /* mkdir's mode went through the umask; these are the modes that hold. */
    if (chmod(store, STORE_DIR_MODE) != 0 || chmod(items, DIR_MODE) != 0)
        return io_error(errno);
    return SS_ERROR_NONE;
}

int ss_store_read(const char *item_id, const ss_credential_t *credential, unsigned char **buffer,
                  size_t *length)
{
    return open_item(item_id, credential, buffer, length);
}

void ss_store_free(unsigned char *buffer, size_t length)
{
    if (!buffer)
        return;
    OPENSSL_cleanse(buffer, length + 1);
    free(buffer);
}

int ss_store_write(const char *item_id, const unsigned char *data, size_t length,
                   const ss_credential_t *credential)
{
    if (length > SS_MAX_ITEM_SIZE)
        return SS_ERROR_TOO_LARGE;
    char path[PATH_MAX];
    int rc = item_path(item_id, path, sizeof(path));
    if (rc == SS_ERROR_NONE)
        rc = prepare_store();
    unsigned char key[ITEM_KEY_LEN];
    if (rc == SS_ERROR_NONE)
        rc = credential_key(1, credential, key);
    if (rc != SS_ERROR_NONE)
        return rc;

    unsigned char aad[MAX_AAD_LEN];
    size_t aad_len = build_aad(aad, item_id, credential->module_id);
    unsigned char *file = NULL;
    size_t file_len = 0;
    rc = seal(key, aad, aad_len, data, length, &file, &file_len);
    OPENSSL_cleanse(key, sizeof(key));
    if (rc != SS_ERROR_NONE)
        return rc;
    if (sso_platform_write_atomic(path, file, file_len, FILE_MODE) != 0)
        rc = io_error(errno);
    free(file);
    return rc;
}

int ss_store_delete(const char *item_id)
{
    char path[PATH_MAX];
    int rc = item_path(item_id, path, sizeof(path));
    if (rc != SS_ERROR_NONE)
        return rc;
    /* A delete goes by item id alone: the store is the device's, and an item
     * that no longer authenticates must stay removable. */
    if (unlink(path) != 0)
        return errno == ENOENT ? SS_ERROR_NO_ITEM : io_error(errno);
    return SS_ERROR_NONE;
}

void ss_store_thread_done(void)
{
    OPENSSL_thread_stop();
}
