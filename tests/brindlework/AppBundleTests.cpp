#include "Brindle/AppBundle.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace brindle {
namespace {

namespace fs = std::filesystem;

TEST(AppBundle, IsFoundBesideTheProgramOrOneFolderUp) {
    qs::test::TemporaryDirectory directory;
    const fs::path root = directory.path() / "opt/quernstead";
    fs::create_directories(root / "bin/deeper");
    const AppBundle bundle{root, "org.example.app", "1.0", "App", "bin/app"};
    std::ofstream(root / AppBundle::manifestName) << bundle.manifest();
    std::ofstream(directory.path() / "opt" / AppBundle::manifestName)
        << R"({"identifier":"org.example.app","version":"1.0","name":"App"})";

    struct Row {
        fs::path program;
        std::optional<AppBundle> found;
    };
    const Row rows[] = {
        {root / "app", bundle},
        {root / "bin/app", bundle},
        {root / "bin/deeper/app", std::nullopt},
        // A manifest without "executable" isn't a bundle.
        {directory.path() / "opt/app", std::nullopt},
        {directory.path() / "elsewhere/app", std::nullopt},
    };
    for (const Row& row : rows) {
        auto found = AppBundle::containing(row.program);
        if (found)
            found->path = fs::canonical(found->path);
        EXPECT_EQ(found, row.found) << row.program;
    }
}

} // namespace
} // namespace brindle
