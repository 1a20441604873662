// The backup ledger's folder line: which of its four states applies, and its words.

#include "ui/LedgerFolderLine.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using namespace std::chrono_literals;
using Kind = LedgerFolderLine::Kind;

TEST(LedgerFolderLine, TheFirstStateThatAppliesIsShown) {
    const Date now = std::chrono::sys_days{std::chrono::year{2024} / 3 / 1} + 12h;
    const std::optional<Date> before = now - 3h;
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const struct {
        const char* name;
        std::optional<LedgerLine> line;
        std::optional<Date> lastRun;
        LedgerFolderLine expected;
    } rows[] = {
        {"running, grouped",
         LedgerLine{true, 1'180, 2'400, false, 0},
         before,
         {Kind::running, "+1,180 of 2,400", "", 1'180, 2'400}},
        {"finished with nothing new: no count of zero",
         LedgerLine{false, 0, 0, true, 0},
         before,
         {Kind::finished, "up to date", "checkmark", 0, 0}},
        {"finished with new mail",
         LedgerLine{false, 1'200, 1'200, true, 1'200},
         std::nullopt,
         {Kind::finished, "+1,200 new", "checkmark", 0, 0}},
        {"reset for this run but not reached: its last pass",
         LedgerLine{},
         before,
         {Kind::ago, "3 h ago", "", 0, 0}},
        {"not in this run: its last pass", std::nullopt, before, {Kind::ago, "3 h ago", "", 0, 0}},
        {"never ran", LedgerLine{}, std::nullopt, {Kind::waiting, "waiting", "", 0, 0}},
        {"nothing known", std::nullopt, std::nullopt, {Kind::waiting, "waiting", "", 0, 0}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LedgerFolderLine::of(row.line, row.lastRun, now, english), row.expected)
            << row.name;
    }
}

} // namespace
} // namespace qs
