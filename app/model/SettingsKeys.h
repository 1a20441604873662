#pragma once

// The user settings, kept in QSettings under organisation and application "Quernstead". The
// keys are persisted: never rename them.

namespace qs::SettingsKeys {

inline constexpr auto organisation = "Quernstead";
inline constexpr auto application = "Quernstead";

/// string, a folder path: the vault chosen by the user; absent by default.
inline constexpr auto archiveRoot = "archiveRoot";
/// boolean, default false: automatic backups on.
inline constexpr auto scheduleEnabled = "scheduleEnabled";
/// integer: hours between automatic backups.
inline constexpr auto scheduleHours = "scheduleHours";
/// boolean, default false: the welcome screen has been shown.
inline constexpr auto didShowWelcome = "qs.didShowWelcome";

} // namespace qs::SettingsKeys
