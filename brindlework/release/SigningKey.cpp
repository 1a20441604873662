#include "SigningKey.h"

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>
#include <stdexcept>
#include <vector>

namespace brindle {

namespace {

std::string base64(const unsigned char* bytes, size_t length) {
    std::string text(4 * ((length + 2) / 3) + 1, '\0');
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes,
                                        static_cast<int>(length));
    text.resize(size_t(written));
    return text;
}

} // namespace

SigningKey::SigningKey(evp_pkey_st* key) : key_(key, &EVP_PKEY_free) {
    if (!key || EVP_PKEY_get_id(key) != EVP_PKEY_ED25519)
        throw std::runtime_error("not an Ed25519 key");
}

SigningKey SigningKey::generate() {
    EVP_PKEY* key = nullptr;
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr), &EVP_PKEY_CTX_free);
    if (!context || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_keygen(context.get(), &key) != 1)
        throw std::runtime_error("Ed25519 key generation failed");
    return SigningKey(key);
}

SigningKey SigningKey::fromPEM(const std::filesystem::path& file) {
    std::unique_ptr<FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "rb"),
                                                         &std::fclose);
    if (!stream)
        throw std::runtime_error("can't read " + file.string());
    EVP_PKEY* key = PEM_read_PrivateKey(stream.get(), nullptr, nullptr, nullptr);
    if (!key)
        throw std::runtime_error(file.string() + " holds no private key");
    return SigningKey(key);
}

std::string SigningKey::publicKey() const {
    unsigned char raw[32];
    size_t length = sizeof raw;
    if (EVP_PKEY_get_raw_public_key(key_.get(), raw, &length) != 1)
        throw std::runtime_error("the public key can't be read");
    return base64(raw, length);
}

std::string SigningKey::sign(std::string_view data) const {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    unsigned char signature[64];
    size_t length = sizeof signature;
    if (!context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get()) != 1 ||
        EVP_DigestSign(context.get(), signature, &length,
                       reinterpret_cast<const unsigned char*>(data.data()), data.size()) != 1)
        throw std::runtime_error("signing failed");
    return base64(signature, length);
}

} // namespace brindle
