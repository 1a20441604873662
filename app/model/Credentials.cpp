#include "model/Credentials.h"

#include "model/Keychain.h"
#include "model/PasswordCommand.h"
#include "support/AtomicFile.h"
#include "support/FileIO.h"
#include "support/JSON.h"

#include <cstdlib>
#include <map>
#include <mutex>

namespace qs::Credentials {

namespace {

using PasswordMap = std::map<std::string, std::string>;

// Only tooling runs reach the map; the lock costs nothing and keeps a backup task and the
// main thread from tearing it.
std::mutex memoryLock;
PasswordMap& memory() {
    static PasswordMap map;
    return map;
}

bool isSet(const char* name) {
    return std::getenv(name) != nullptr;
}

std::optional<PasswordMap> readFile(const std::filesystem::path& path) {
    try {
        return nlohmann::json::parse(FileIO::read(path)).get<PasswordMap>();
    } catch (const nlohmann::json::exception&) {
    } catch (const std::system_error&) {
    }
    return std::nullopt;
}

// The map in force: the file's when it reads and decodes, else the one in memory.
PasswordMap currentMap(const std::optional<std::filesystem::path>& path) {
    if (path) {
        if (auto map = readFile(*path)) {
            return std::move(*map);
        }
    }
    std::lock_guard lock(memoryLock);
    return memory();
}

// Written whole and atomically, readable by the owner alone (it holds passwords).
void writeFile(const std::filesystem::path& path, const PasswordMap& map) {
    AtomicFile::write(path, JSONRules::dump(nlohmann::json(map)));
    std::error_code ignored;
    std::filesystem::permissions(
        path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, ignored);
}

void keep(const PasswordMap& map) {
    std::lock_guard lock(memoryLock);
    memory() = map;
}

} // namespace

std::string key(const MailAccount& account) {
    return account.username + "@" + account.server.host + ":" + std::to_string(account.server.port);
}

std::optional<std::filesystem::path> file() {
    const char* path = std::getenv("QUERNSTEAD_CREDENTIALS_FILE");
    if (path == nullptr || *path == '\0') {
        return std::nullopt;
    }
    return std::filesystem::path(path);
}

bool usesKeychain() {
    return !file() && !isSet("QUERNSTEAD_DEMO_DIR") && !isSet("QUERNSTEAD_SNAPSHOT_DIR");
}

void save(std::string_view password, const MailAccount& account) {
    if (usesKeychain()) {
        Keychain::save(password, account);
        return;
    }
    auto path = file();
    auto map = currentMap(path);
    map[key(account)] = std::string(password);
    keep(map);
    if (path) {
        writeFile(*path, map);
    }
}

std::optional<std::string> password(const MailAccount& account) {
    if (account.passwordCommand) {
        return PasswordCommand::run(*account.passwordCommand);
    }
    if (usesKeychain()) {
        return Keychain::password(account);
    }
    auto map = currentMap(file());
    auto found = map.find(key(account));
    if (found == map.end()) {
        return std::nullopt;
    }
    return found->second;
}

void remove(const MailAccount& account) noexcept {
    if (usesKeychain()) {
        Keychain::remove(account);
        return;
    }
    try {
        auto path = file();
        auto map = currentMap(path);
        map.erase(key(account));
        keep(map);
        if (path) {
            writeFile(*path, map);
        }
    } catch (...) {
        // Deleting reports nothing; a file that can't be written keeps the old entry, which
        // does no harm beyond a password that outlives its account.
    }
}

} // namespace qs::Credentials
