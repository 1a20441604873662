#include "ui/LedgerFolderLine.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using namespace std::chrono_literals;
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
    for (const auto& row : rows) {
        EXPECT_EQ(LedgerFolderLine::of(row.line, row.lastRun, now,
                                       QLocale(QLocale::English, QLocale::UnitedStates)),
                  row.expected)
            << row.expected.text.toStdString();
    }
}

} // namespace
} // namespace qs
