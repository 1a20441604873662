#pragma once

#include <stdexcept>
#include <string>

namespace qs {

/// Another writer holds the vault: a backup, an import, a reindex or a release runs in another
/// process (or elsewhere in this one). Nothing was changed; the caller may try again later.
class VaultBusyError : public std::runtime_error {
public:
    /// `holder` is what the holder wrote of itself ("quernstead-cli, process 4711, backup"),
    /// empty when it couldn't be read.
    explicit VaultBusyError(std::string holder)
        : std::runtime_error("vault busy: " + holder), holder_(std::move(holder)) {}

    const std::string& holder() const { return holder_; }

private:
    std::string holder_;
};

} // namespace qs
