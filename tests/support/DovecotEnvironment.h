#pragma once

#include "support/DovecotFixture.h"

#include <gtest/gtest.h>

namespace qs::test {

/// Starts the shared Dovecot before a program's first test, so that no single test's time
/// includes the start-up. Register it once with ::testing::AddGlobalTestEnvironment.
class DovecotEnvironment : public ::testing::Environment {
public:
    void SetUp() override { DovecotFixture::shared(); }
};

} // namespace qs::test
