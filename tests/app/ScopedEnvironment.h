#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace qs::test {

/// Puts every variable it changed back at its end, so no test's variables leak into the next.
class ScopedEnvironment {
public:
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
    void set(const std::string& name, const std::string& value) {
        save(name);
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    void unset(const std::string& name) {
        save(name);
        ::unsetenv(name.c_str());
    }

private:
    void save(const std::string& name) {
        const char* value = std::getenv(name.c_str());
        saved_.try_emplace(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    std::map<std::string, std::optional<std::string>> saved_;
};

} // namespace qs::test
