#include "model/ProviderPreset.h"

#include <algorithm>

namespace qs {

const std::vector<ProviderPreset>& ProviderPreset::all() {
    static const std::vector<ProviderPreset> presets{
        {"gmail",
         "Gmail",
         "envelope.fill",
         "imap.gmail.com",
         993,
         {"Turn on 2-Step Verification for your Google Account (app passwords need it).",
          "Open Google Account › Security › App passwords (or use the button below).",
          "Type “Quernstead” as the app name and click Create.",
          "Copy the 16-letter password Google shows and paste it here. Spaces don’t matter."},
         "https://myaccount.google.com/apppasswords",
         "Gmail labels appear as folders. “[Gmail]/All Mail” holds every message once, so "
         "backing up just that folder avoids duplicates.",
         "App password · needs 2-Step Verification"},
        {"icloud",
         "iCloud Mail",
         "icloud.fill",
         "imap.mail.me.com",
         993,
         {"Sign in at account.apple.com, with two-factor authentication turned on.",
          "Go to Sign-In and Security › App-Specific Passwords.",
          "Click the + button, name it “Quernstead” and confirm.",
          "Paste the password it shows (xxxx-xxxx-xxxx-xxxx) here, with your full iCloud "
          "address as the user name."},
         "https://account.apple.com/account/manage",
         std::nullopt,
         "App-specific password · needs two-factor"},
        {"yahoo",
         "Yahoo Mail",
         "y.circle.fill",
         "imap.mail.yahoo.com",
         993,
         {"Open Yahoo Account Info › Account Security.",
          "Choose “Generate app password” (sometimes under “Other ways to sign in”).",
          "Name it “Quernstead” and click Generate.",
          "Paste the password here, with your full Yahoo address as the user name."},
         "https://login.yahoo.com/account/security",
         std::nullopt,
         "App password from Account Security"},
        {"fastmail",
         "Fastmail",
         "bolt.fill",
         "imap.fastmail.com",
         993,
         {"In Fastmail open Settings › Privacy & Security › Manage app passwords and access.",
          "Click “New app password”, name it “Quernstead”.",
          "Give it access to “Mail (IMAP/POP/SMTP)” — read access is enough.",
          "Paste the password here with your Fastmail address as the user name."},
         "https://app.fastmail.com/settings/security/integrations",
         std::nullopt,
         "App password with IMAP access"},
        {"outlook",
         "Outlook",
         "envelope.badge.fill",
         "outlook.office365.com",
         993,
         {"Turn on two-step verification in your Microsoft account’s security settings.",
          "Under Advanced security options › App passwords, create a new app password.",
          "Paste it here with your full Outlook or Hotmail address as the user name."},
         "https://account.live.com/proofs/AppPassword",
         "Microsoft is phasing out password sign-in for IMAP. If your account refuses the app "
         "password it needs modern (OAuth) sign-in, which Quernstead doesn’t support yet.",
         "App password · two-step verification"},
        {"custom",
         "Other IMAP",
         "server.rack",
         "",
         993,
         {"Find your provider’s IMAP server name in its help pages (often imap.<your-domain>).",
          "If your provider offers app passwords, create one for Quernstead; otherwise use your "
          "normal mail password.",
          "Quernstead always connects with TLS (port 993)."},
         std::nullopt,
         std::nullopt,
         "Server name + password · TLS on 993"},
    };
    return presets;
}

const ProviderPreset& ProviderPreset::named(std::string_view id) {
    const auto& presets = all();
    auto found = std::ranges::find(presets, id, &ProviderPreset::id);
    return found != presets.end() ? *found : presets.back();
}

std::string ProviderPreset::passwordForUse(std::string_view typed) const {
    std::string password(typed);
    if (id == "gmail") {
        std::erase(password, ' ');
    }
    return password;
}

} // namespace qs
