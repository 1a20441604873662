// The window's decisions that are plain functions, and the symbol table's coverage of every
// name the model emits.

#include "model/SmartFilter.h"
#include "ui/BackupStripText.h"
#include "ui/ListEmptyState.h"
#include "ui/Symbols.h"

#include <QFile>
#include <gtest/gtest.h>

// Rows name only the fields that matter to them; the rest keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace qs {
namespace {

using namespace std::chrono_literals;

TEST(BackupStripText, TitleTakesTheFirstStateThatHolds) {
    using State = BackupStripText::State;
    BackupProgress downloading;
    downloading.folder = "INBOX";
    downloading.phase = "Downloading";
    downloading.messagesDone = 1200;
    downloading.messagesTotal = 4000;
    // clang-format off
    const struct {
        const char* name;
        State state;
        const char* title;
    } rows[] = {
        {"before the first report", {.running = true, .indexing = std::pair{1u, 2u}},
         "Connecting…"},
        {"downloading", {.running = true, .progress = downloading}, "INBOX 1,200 of 4,000"},
        {"indexing", {.indexing = std::pair{10u, 2000u}, .accountCount = 1},
         "Indexing 10 of 2,000"},
        {"no accounts", {}, "No accounts yet"},
        {"a problem", {.accountCount = 2, .hasProblems = true, .anyBackedUp = true},
         "Needs attention"},
        {"never backed up", {.accountCount = 1}, "Not backed up yet"},
        {"backed up", {.accountCount = 1, .anyBackedUp = true}, "Backed up"},
    };
    // clang-format on
    for (const auto& row : rows)
        EXPECT_EQ(BackupStripText::title(row.state), QString::fromUtf8(row.title)) << row.name;
}

TEST(BackupStripText, DetailJoinsAgeScheduleAndAccountCount) {
    const Date now = std::chrono::system_clock::now();
    EXPECT_EQ(BackupStripText::detail({.accountCount = 1}, now), "");
    EXPECT_EQ(BackupStripText::detail({.accountCount = 3,
                                       .lastFinished = now - 2h,
                                       .scheduleEnabled = true,
                                       .scheduleHours = 12},
                                      now),
              "2 h ago · auto 12h · 3 acct");
}

TEST(ListEmptyState, ChoosesTheFirstConditionThatApplies) {
    using Inputs = ListEmptyState::Inputs;
    using Action = ListEmptyState::Action;
    const auto suspicious = SidebarItem::ofSmart(SmartFilter::suspicious);
    // clang-format off
    const struct {
        const char* name;
        Inputs in;
        const char* title;
        Action action;
    } rows[] = {
        {"indexing an empty list", {.indexingDone = 40, .query = "x"}, "Reading your vault",
         Action::none},
        {"an empty vault", {.query = "   "}, "The vault is empty", Action::backUpNow},
        {"a clean safety shelf", {.records = 5, .sidebar = suspicious}, "All clear",
         Action::showEverything},
        {"an empty folder", {.records = 5, .sidebar = SidebarItem::ofFolder("A", "B")},
         "Nothing here", Action::showEverything},
    };
    // clang-format on
    for (const auto& row : rows) {
        const auto state = ListEmptyState::choose(row.in);
        ASSERT_TRUE(state) << row.name;
        EXPECT_EQ(state->title, QString::fromUtf8(row.title)) << row.name;
        EXPECT_EQ(state->action, row.action) << row.name;
    }
    EXPECT_FALSE(ListEmptyState::choose({.indexingDone = 3, .records = 2, .visible = 2}));
    EXPECT_EQ(
        ListEmptyState::choose({.records = 1, .sidebar = SidebarItem::ofSmart(SmartFilter::large)})
            ->texts,
        QStringList{"No message is larger than 5 MB."});
}

TEST(Symbols, EveryNameTheModelShowsHasAShapeInTheProgram) {
    QStringList names =
        QStringLiteral("tray paperplane doc trash xmark.bin archivebox folder "
                       "square.and.arrow.down exclamationmark.circle text.magnifyingglass "
                       "arrow.triangle.2.circlepath stop.fill arrow.up.bin ellipsis.circle "
                       "eye.slash paperclip envelope.open person.crop.circle.badge.minus "
                       "checkmark.shield.fill stop.circle.fill exclamationmark.triangle.fill "
                       "magnifyingglass.circle.fill tray.and.arrow.down.fill")
            .split(' ');
    for (SmartFilter filter : SmartFilters::all)
        names.append(QString::fromUtf8(SmartFilters::symbol(filter)));
    for (const auto& name : names) {
        const std::string_view file = Symbols::file(name.toStdString());
        EXPECT_TRUE(
            !file.empty() &&
            QFile::exists(QStringLiteral(":/Quernstead/icons/%1.svg").arg(QString::fromUtf8(file))))
            << name.toStdString();
    }
    EXPECT_TRUE(Symbols::file("no.such.symbol").empty());
}

} // namespace
} // namespace qs
