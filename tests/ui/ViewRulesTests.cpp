#include "model/SmartFilter.h"
#include "ui/BackupStripText.h"
#include "ui/CommandTable.h"
#include "ui/FolderSymbol.h"
#include "ui/LedgerFolderLine.h"
#include "ui/ListEmptyState.h"
#include "ui/Symbols.h"
#include "ui/TimelineSpineGeometry.h"

#include <QFile>
#include <gtest/gtest.h>

#include <set>

// Rows name only the fields that matter to them; the rest keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace qs {
namespace {

using namespace std::chrono_literals;

TEST(BackupStripText, TitleTakesTheFirstStateThatHoldsAndDetailJoinsItsParts) {
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

// The substring tests are blunt on purpose ("Cabinet").
TEST(Symbols, RowsTakeTheFirstRuleThatHoldsAndEveryNameTheModelShowsHasAShape) {
    const std::pair<const char*, const char*> folders[] = {
        {"INBOX", "tray"},     {"Inbox/Sent", "paperplane"},       {"Sent Drafts", "paperplane"},
        {"Entwürfe", "doc"},   {"Deleted Items", "trash"},         {"Cabinet", "trash"},
        {"Junk", "xmark.bin"}, {"[Gmail]/All Mail", "archivebox"}, {"Archive 2019", "archivebox"},
        {"Inboxes", "folder"}};
    for (const auto& [name, symbol] : folders)
        EXPECT_EQ(folderSymbol(QString::fromUtf8(name)), QLatin1String(symbol)) << name;
    EXPECT_EQ(accountSymbol("Imported", true), "square.and.arrow.down");
    EXPECT_EQ(accountSymbol("Robin", true), "exclamationmark.circle");
    EXPECT_EQ(accountSymbol("imported", false), "archivebox");
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

using CommandTable::State;

TEST(CommandTable, EachCommandIsEnabledInTheStatesItsMenuPromises) {
    const State none{};
    const State idle{.hasAccounts = true};
    const State running{.hasAccounts = true, .backupRunning = true};
    const State browsing{.visibleNotEmpty = true, .selection = true};
    const State reading{.visibleNotEmpty = true, .messageOpen = true, .selection = true};
    const struct {
        const char* action;
        State on;
        State off;
    } rows[] = {
        {"backUpNow", idle, running},
        {"stopBackup", running, idle},
        {"showImages", reading, browsing},
        {"saveSearch", {.queryNotEmpty = true}, browsing},
        {"checkForUpdates", {.updatesActive = true}, none},
    };
    for (const auto& row : rows) {
        const auto* command = CommandTable::find(row.action);
        ASSERT_NE(command, nullptr) << row.action;
        EXPECT_TRUE(CommandTable::isEnabled(command->enabled, row.on)) << row.action;
        EXPECT_FALSE(CommandTable::isEnabled(command->enabled, row.off)) << row.action;
    }
    std::set<std::string_view> seen;
    for (const auto& command : CommandTable::commands())
        EXPECT_TRUE(command.keys.empty() || seen.insert(command.keys).second) << command.keys;
    EXPECT_EQ(CommandTable::keycaps("Ctrl+Shift+Up"), (QStringList{"Ctrl", "Shift", "↑"}));
}

using Kind = LedgerFolderLine::Kind;

TEST(LedgerFolderLine, TheFirstStateThatAppliesIsShown) {
    const Date now = std::chrono::sys_days{std::chrono::year{2024} / 3 / 1} + 12h;
    const std::optional<Date> before = now - 3h, never;
    const LedgerFolderLine ago{Kind::ago, "3 h ago", "", 0, 0};
    const LedgerFolderLine waiting{Kind::waiting, "waiting", "", 0, 0};
    // clang-format off
    const struct {
        std::optional<LedgerLine> line;
        std::optional<Date> lastRun;
        LedgerFolderLine expected;
    } rows[] = {
        {LedgerLine{true, 1'180, 2'400, false, 0}, before,
         {Kind::running, "+1,180 of 2,400", "", 1'180, 2'400}},
        {LedgerLine{false, 0, 0, true, 0}, before, {Kind::finished, "up to date", "checkmark", 0, 0}},
        {LedgerLine{false, 1'200, 1'200, true, 1'200}, never,
         {Kind::finished, "+1,200 new", "checkmark", 0, 0}},
        {LedgerLine{}, before, ago}, // reset for this run but not reached: its last pass
        {std::nullopt, before, ago},
        {LedgerLine{}, never, waiting},
    };
    // clang-format on
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    for (const auto& row : rows)
        EXPECT_EQ(LedgerFolderLine::of(row.line, row.lastRun, now, english), row.expected);
}

using Years = std::vector<std::pair<int, double>>;

TEST(TimelineSpineGeometry, LaysOutEveryMonthWithYearGaps) {
    // clang-format off
    const struct {
        std::string name;
        std::optional<MonthKey> newest, oldest;
        double height;
        size_t months;
        double rowHeight;
        Years years;
        double lastTop;
    } cases[] = {
        // Two months of 2024, all of 2023 and 2022 (empty), two months of 2021.
        {"a gap of years: a row per month", MonthKey{2024, 2}, MonthKey{2021, 11}, 600, 28, 13,
         {{2024, 14}, {2023, 47}, {2022, 210}, {2021, 373}}, 386},
        // (600 - 28 - 7 × 24) ÷ 300 stays above the floor.
        {"300 months in 600", MonthKey{2024, 12}, MonthKey{2000, 1}, 600, 300, 404.0 / 300, {},
         14 + 7 * 24 + 299 * 404.0 / 300},
        {"300 months in 400: the floor", MonthKey{2024, 12}, MonthKey{2000, 1}, 400, 300, 1.2, {},
         14 + 7 * 24 + 299 * 1.2},
        {"no newest: empty", std::nullopt, MonthKey{2024, 1}, 600, 0, 0, {}, 0},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto g = TimelineSpineGeometry::make(c.newest, c.oldest, c.height);
        ASSERT_EQ(g.months.size(), c.months);
        EXPECT_DOUBLE_EQ(g.rowHeight, c.rowHeight);
        if (!c.years.empty() || c.months == 0) {
            EXPECT_EQ(g.years, c.years);
        }
        if (c.months > 0) {
            EXPECT_EQ(g.months.front(), std::max(*c.newest, *c.oldest));
            EXPECT_EQ(g.months.back(), std::min(*c.newest, *c.oldest));
            EXPECT_NEAR(g.top.at(g.months.back().ordinal()), c.lastTop, 1e-9);
        }
    }
}

} // namespace
} // namespace qs
