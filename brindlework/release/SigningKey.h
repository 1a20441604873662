#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace brindle {

/// An Ed25519 private key for signing releases. The public half, as base64 of its raw 32
/// bytes, is what a build is given to check updates with.
class SigningKey {
public:
    /// A fresh key.
    static SigningKey generate();
    /// The key in a PEM file (as `openssl genpkey -algorithm ed25519` writes it); throws
    /// std::runtime_error when it can't be read or isn't Ed25519.
    static SigningKey fromPEM(const std::filesystem::path& file);

    std::string publicKey() const;
    /// Base64 of the signature of `data`.
    std::string sign(std::string_view data) const;

private:
    explicit SigningKey(evp_pkey_st* key);
    std::shared_ptr<evp_pkey_st> key_;
};

} // namespace brindle
