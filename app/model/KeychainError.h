#pragma once

#include <stdexcept>
#include <string>

namespace qs {

/// A failure of the system's password store (the Secret Service), carrying the store's own
/// code and message so the error can be worded for the user without losing what happened.
class KeychainError : public std::runtime_error {
public:
    /// `message` is the store's text; when it has none, "Keychain error {code}" in the words
    /// of this platform.
    KeychainError(int code, const std::string& message);

    /// The store's error code (a GError code of its domain).
    int code() const { return code_; }

private:
    int code_;
};

} // namespace qs
