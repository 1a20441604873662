#include "safety/TrackerTables.h"

namespace qs::TrackerTables {

// Each service by the registrable domains its opens are counted from (not every domain it
// owns: a service's own product pages would otherwise count as trackers).
const std::array<std::string_view, 44> trackerDomains = {
    // Mailchimp: list manager, main domain, content server, Mandrill.
    "list-manage.com", "mailchimp.com", "mcusercontent.com", "mandrillapp.com",
    // SendGrid.
    "sendgrid.net",
    // Mailgun.
    "mailgun.net", "mailgun.org",
    // HubSpot, with its analytics host.
    "hubspot.com", "hubspotemail.net", "hs-analytics.net",
    // Salesforce Marketing Cloud, also under the ExactTarget name.
    "exacttarget.com", "exct.net",
    // Marketo.
    "marketo.com", "mktoresp.com",
    // Customer IO.
    "customer.io",
    // Klaviyo.
    "klaviyo.com", "klclick.com",
    // ConvertKit.
    "convertkit.com", "convertkit-mail.com",
    // Mailtrack, Mixmax, Yesware, Bananatag, GetNotify, Streak.
    "mailtrack.io", "mixmax.com", "yesware.com", "bananatag.com", "getnotify.com", "streak.com",
    // Intercom.
    "intercom.io", "intercom-mail.com",
    // SparkPost.
    "sparkpostmail.com",
    // Constant Contact (rs6.net is its tracking domain).
    "constantcontact.com", "rs6.net",
    // EmailTracker, DoubleClick, Google Analytics.
    "emailtracker.website", "doubleclick.net", "google-analytics.com",
    // Postmark, Mailjet, Amazon SES tracking.
    "pstmrk.it", "mjt.lu", "awstrack.me",
    // Substack, beehiiv.
    "substack.com", "beehiiv.com",
    // Campaign Monitor.
    "createsend.com", "cmail19.com", "cmail20.com",
    // Return Path, Litmus (its open tracker), EmailOctopus.
    "returnpath.net", "emltrk.com", "emailoctopus.com"};

const std::array<std::string_view, 9> trackerPathHints = {
    "/open", "/track", "pixel", "beacon", "/wf/open", "/o.gif", "/e/o/", "openrate", "/imp?"};

} // namespace qs::TrackerTables
