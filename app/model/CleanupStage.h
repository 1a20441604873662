#pragma once

namespace qs {

/// Where the walk to free server space stands, in the order it goes.
enum class CleanupStage { choose = 0, verify = 1, release = 2, done = 3 };

} // namespace qs
