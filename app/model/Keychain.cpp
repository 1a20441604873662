#include "model/Keychain.h"

#include "model/KeychainError.h"
#include "support/Unicode.h"

#include <libsecret/secret.h>
#include <memory>

namespace qs::Keychain {

namespace {

// The address of an item, plus the comment, which is stored but never searched by.
const SecretSchema& schema() {
    static const SecretSchema instance = [] {
        SecretSchema s{};
        s.name = "org.quernstead.InternetPassword";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"server", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"user", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[2] = {"port", SECRET_SCHEMA_ATTRIBUTE_INTEGER};
        s.attributes[3] = {"protocol", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[4] = {"comment", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return instance;
}

struct TableDeleter {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using Attributes = std::unique_ptr<GHashTable, TableDeleter>;

struct ErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};

// The strings a query refers to; they must outlive the table, which only borrows them.
struct Query {
    std::string server;
    std::string user;
    std::string port;
    Attributes attributes;
};

Query query(const MailAccount& account) {
    Query q{account.server.host, account.username, std::to_string(account.server.port),
            Attributes(g_hash_table_new(g_str_hash, g_str_equal))};
    g_hash_table_insert(q.attributes.get(), const_cast<char*>("server"), q.server.data());
    g_hash_table_insert(q.attributes.get(), const_cast<char*>("user"), q.user.data());
    g_hash_table_insert(q.attributes.get(), const_cast<char*>("port"), q.port.data());
    g_hash_table_insert(q.attributes.get(), const_cast<char*>("protocol"),
                        const_cast<char*>("imaps"));
    return q;
}

} // namespace

std::string label(const MailAccount& account) {
    return "Quernstead – " + account.username;
}

void save(std::string_view password, const MailAccount& account) {
    auto q = query(account);
    GError* ignored = nullptr;
    // Replacing is delete then add, so the label and comment are always current; a failure to
    // delete shows again, better worded, in the add.
    secret_password_clearv_sync(&schema(), q.attributes.get(), nullptr, &ignored);
    if (ignored) {
        g_error_free(ignored);
    }

    std::string commentText(comment);
    g_hash_table_insert(q.attributes.get(), const_cast<char*>("comment"), commentText.data());
    std::string secret(password);
    GError* error = nullptr;
    gboolean stored =
        secret_password_storev_sync(&schema(), q.attributes.get(), SECRET_COLLECTION_DEFAULT,
                                    label(account).c_str(), secret.c_str(), nullptr, &error);
    std::unique_ptr<GError, ErrorDeleter> owned(error);
    if (!stored || error) {
        throw KeychainError(error ? error->code : -1,
                            error && error->message ? error->message : "");
    }
}

std::optional<std::string> password(const MailAccount& account) {
    auto q = query(account);
    GError* error = nullptr;
    gchar* found = secret_password_lookupv_sync(&schema(), q.attributes.get(), nullptr, &error);
    std::unique_ptr<GError, ErrorDeleter> owned(error);
    if (error) {
        // No item is no error; an error means the store couldn't be asked at all (no session
        // bus, no keyring service, a locked keyring that can't prompt).
        if (found) {
            secret_password_free(found);
        }
        throw KeychainError(error->code, error->message ? error->message : "");
    }
    if (!found) {
        return std::nullopt;
    }
    std::string result(found);
    secret_password_free(found);
    if (!Unicode::isValidUTF8(result)) {
        return std::nullopt;
    }
    return result;
}

void remove(const MailAccount& account) noexcept {
    auto q = query(account);
    GError* ignored = nullptr;
    secret_password_clearv_sync(&schema(), q.attributes.get(), nullptr, &ignored);
    if (ignored) {
        g_error_free(ignored);
    }
}

} // namespace qs::Keychain
