#pragma once

#include "support/DovecotFixture.h"

#include <gtest/gtest.h>

namespace qs::test {

/// Starts the shared Dovecot before the first test of a program rather than inside whichever
/// test first asks for it (so that no single test's time includes the start-up). Register it
/// once, from any test file of the program:
///
///     static auto* const dovecotEnvironment =
///         ::testing::AddGlobalTestEnvironment(new qs::test::DovecotEnvironment);
///
/// Tests then use DovecotFixture::shared() as usual; it stops at exit.
class DovecotEnvironment : public ::testing::Environment {
public:
    void SetUp() override { DovecotFixture::shared(); }
};

} // namespace qs::test
