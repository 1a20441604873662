#include "safety/SenderTables.h"

#include <algorithm>

namespace qs::SenderTables {

const std::vector<Brand>& brands() {
    static const std::vector<Brand> table = {
        {"paypal",
         {"paypal.com", "paypal.me", "paypal-communication.com", "paypalobjects.com",
          "paypal.co.uk", "paypal.de"}},
        {"apple", {"apple.com", "icloud.com", "me.com", "mac.com", "itunes.com"}},
        {"icloud", {"icloud.com", "apple.com", "me.com", "mac.com"}},
        {"microsoft",
         {"microsoft.com", "microsoftonline.com", "office.com", "office365.com", "outlook.com",
          "live.com", "hotmail.com", "msn.com"}},
        {"outlook",
         {"outlook.com", "microsoft.com", "office.com", "office365.com", "live.com", "hotmail.com",
          "msn.com"}},
        {"google",
         {"google.com", "gmail.com", "googlemail.com", "youtube.com", "google.co.uk", "google.de",
          "withgoogle.com"}},
        {"gmail", {"gmail.com", "google.com", "googlemail.com"}},
        {"amazon",
         {"amazon.com", "amazon.co.uk", "amazon.de", "amazon.fr", "amazon.ca", "amazon.co.jp",
          "amazonses.com", "amazonaws.com"}},
        {"netflix", {"netflix.com"}},
        {"facebook", {"facebook.com", "facebookmail.com", "fb.com", "meta.com", "metamail.com"}},
        {"instagram", {"instagram.com", "facebookmail.com", "meta.com"}},
        {"linkedin", {"linkedin.com", "licdn.com"}},
        {"dropbox", {"dropbox.com", "dropboxmail.com"}},
        {"docusign", {"docusign.com", "docusign.net"}},
        {"wellsfargo", {"wellsfargo.com", "wellsfargoadvisors.com", "wf.com"}},
        {"bankofamerica", {"bankofamerica.com", "bofa.com"}},
        {"chase", {"chase.com", "jpmorgan.com", "jpmorganchase.com"}},
        {"coinbase", {"coinbase.com"}},
        {"binance", {"binance.com", "binance.us"}},
        {"stripe", {"stripe.com"}},
        {"github", {"github.com"}},
        {"adobe", {"adobe.com", "adobesign.com", "echosign.com"}},
        {"spotify", {"spotify.com"}},
        {"ebay", {"ebay.com", "ebay.co.uk", "ebay.de", "ebay.com.au", "ebay.ca", "ebay.fr"}},
        {"fedex", {"fedex.com"}},
        {"dhl", {"dhl.com", "dhl.de", "dhl.co.uk"}},
        {"usps", {"usps.com", "usps.gov"}},
        {"royalmail", {"royalmail.com", "royalmailgroup.com"}},
        {"postnord", {"postnord.com", "postnord.se", "postnord.dk", "postnord.no", "postnord.fi"}},
        {"irs", {"irs.gov", "treasury.gov"}},
        // HMRC writes from all over the government's own domain.
        {"hmrc", {"hmrc.gov.uk", "gov.uk", "service.gov.uk"}},
        {"steam", {"steampowered.com", "steamcommunity.com", "valvesoftware.com"}},
        {"zoom", {"zoom.us", "zoom.com", "zoomgov.com"}},
        {"slack", {"slack.com", "slackhq.com"}},
        {"whatsapp", {"whatsapp.com", "whatsapp.net", "facebookmail.com", "meta.com"}},
        {"twitter", {"twitter.com", "x.com"}},
        {"booking", {"booking.com"}},
        {"airbnb", {"airbnb.com", "airbnb.co.uk", "airbnb.de"}},
    };
    return table;
}

const std::array<std::string_view, 9> shortBrands = {"dhl",   "irs",   "usps", "zoom", "chase",
                                                     "steam", "slack", "hmrc", "apple"};

const std::array<std::string_view, 39> genericWords = {
    "support",      "team",     "service", "services", "security",     "account",
    "accounts",     "online",   "bank",    "billing",  "customer",     "care",
    "help",         "helpdesk", "alert",   "alerts",   "notification", "notifications",
    "no",           "reply",    "noreply", "id",       "mail",         "inc",
    "the",          "official", "center",  "centre",   "delivery",     "express",
    "verification", "verify",   "update",  "updates",  "info",         "admin",
    "desk",         "store",    "pay"};

bool isShortBrand(std::string_view word) {
    return std::find(shortBrands.begin(), shortBrands.end(), word) != shortBrands.end();
}

bool isGenericWord(std::string_view word) {
    return std::find(genericWords.begin(), genericWords.end(), word) != genericWords.end();
}

} // namespace qs::SenderTables
