#include "demo/DemoMail.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <string_view>

namespace qs::demo {

namespace {

/// splitmix64: tiny, and the same sequence everywhere (unlike the standard distributions).
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    int below(int bound) { return static_cast<int>(next() % static_cast<uint64_t>(bound)); }
    template <typename T, size_t N>
    const T& pick(const std::array<T, N>& items) {
        return items[static_cast<size_t>(below(static_cast<int>(N)))];
    }

private:
    uint64_t state_;
};

struct Person {
    std::string_view name;
    std::string_view address;
};

constexpr Person owner{"Robin Ashdown", "robin@ashdown.example"};

constexpr std::array<Person, 6> family{{{"Maren Ashdown", "maren@fernhill.example"},
                                        {"Tobias Ashdown", "tobi@fernhill.example"},
                                        {"Grandma Ilse", "ilse.vogt@postamt.example"},
                                        {"Jonas Weber", "jonas@weber-familie.example"},
                                        {"Aiko Tanabe", "aiko@sakura-net.example"},
                                        {"Olga Petrova", "olga@volga-mail.example"}}};

constexpr std::array<Person, 4> colleagues{{{"Priya Raman", "priya.raman@quillworks.example"},
                                            {"Dario Conti", "dario.conti@quillworks.example"},
                                            {"Hélène Marchand", "h.marchand@atelier-lune.example"},
                                            {"Accounts Team", "accounts@quillworks.example"}}};

struct Newsletter {
    std::string_view name;
    std::string_view address;
    std::string_view domain;
    std::string_view tracker;
};

constexpr std::array<Newsletter, 4> newsletters{
    {{"Trailhead Outfitters", "news@trailhead-outfitters.example", "trailhead-outfitters.example",
      "pixel.mailmetrics.example"},
     {"The Weekly Loaf", "hello@weeklyloaf.example", "weeklyloaf.example",
      "open.clicktally.example"},
     {"Northbank", "statements@northbank.example", "northbank.example", "t.northbank-mail.example"},
     {"Cinema Paradiso Club", "club@paradiso-cinema.example", "paradiso-cinema.example",
      "beacon.mailmetrics.example"}}};

constexpr std::array<std::string_view, 8> topics{
    "Sunday lunch",   "Photos from the lake", "Train times",    "The garden",
    "Birthday plans", "Recipe you asked for", "Quick question", "Moving day"};

constexpr std::array<std::string_view, 6> projects{"Q3 budget",       "Harbour bridge drawings",
                                                   "Supplier review", "Offsite agenda",
                                                   "Invoice 4471",    "Print proofs"};

constexpr std::array<std::string_view, 12> monthNames{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<std::string_view, 7> dayNames{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

bool isLeap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysIn(int year, int month) {
    constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeap(year) ? 29 : days[static_cast<size_t>(month - 1)];
}

/// Sakamoto's method; 0 is Sunday.
int weekday(int year, int month, int day) {
    constexpr std::array<int, 12> offsets{0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
    if (month < 3)
        year -= 1;
    return (year + year / 4 - year / 100 + year / 400 + offsets[static_cast<size_t>(month - 1)] +
            day) %
           7;
}

struct Stamp {
    int year, month, day, hour, minute;
};

std::string rfcDate(const Stamp& s) {
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %d %02d:%02d:00 +0100",
                  dayNames[static_cast<size_t>(weekday(s.year, s.month, s.day))].data(), s.day,
                  monthNames[static_cast<size_t>(s.month - 1)].data(), s.year, s.hour, s.minute);
    return text;
}

// The instant of a stamp, which the Date header writes in +0100.
Date instant(const Stamp& s) {
    using namespace std::chrono;
    const sys_days day = year(s.year) / s.month / s.day;
    return Date(day + hours(s.hour) + minutes(s.minute) - hours(1));
}

std::string addressOf(const Person& person) {
    return "\"" + std::string(person.name) + "\" <" + std::string(person.address) + ">";
}

std::string base64(std::string_view bytes) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t column = 0;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t chunk = static_cast<uint8_t>(bytes[i]) << 16;
        if (i + 1 < bytes.size())
            chunk |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size())
            chunk |= static_cast<uint8_t>(bytes[i + 2]);
        out += alphabet[(chunk >> 18) & 63];
        out += alphabet[(chunk >> 12) & 63];
        out += i + 1 < bytes.size() ? alphabet[(chunk >> 6) & 63] : '=';
        out += i + 2 < bytes.size() ? alphabet[chunk & 63] : '=';
        if ((column += 4) >= 76) {
            out += "\r\n";
            column = 0;
        }
    }
    if (column != 0)
        out += "\r\n";
    return out;
}

std::string header(const std::string& from, const std::string& to, const std::string& subject,
                   const Stamp& stamp, int serial) {
    char id[96];
    std::snprintf(id, sizeof id, "<demo.%06d.%d%02d%02d@ashdown.example>", serial, stamp.year,
                  stamp.month, stamp.day);
    return "From: " + from + "\r\nTo: " + to + "\r\nSubject: " + subject +
           "\r\nDate: " + rfcDate(stamp) + "\r\nMessage-ID: " + id + "\r\nMIME-Version: 1.0\r\n";
}

std::string personal(Random& random, const Stamp& stamp, int serial) {
    const Person& from = random.pick(family);
    std::string subject(random.pick(topics));
    std::string head = header(addressOf(from), addressOf(owner), subject, stamp, serial);
    switch (random.below(4)) {
    case 0: // Latin-1, quoted-printable
        return head +
               "Content-Type: text/plain; charset=iso-8859-1\r\n"
               "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
               "Hallo Robin,\r\n\r\nsch=F6ne Gr=FC=DFe aus M=FCnchen! Das Wetter ist "
               "herrlich und der K=E4se war gro=DFartig.\r\n\r\nBis bald,\r\n" +
               std::string(from.name) + "\r\n";
    case 1: // Japanese, UTF-8 in base64, with an encoded subject
        return "From: " + addressOf(from) + "\r\nTo: " + addressOf(owner) +
               "\r\nSubject: =?UTF-8?B?" + base64("お花見の写真").substr(0, 24) +
               "?=\r\nDate: " + rfcDate(stamp) + "\r\nMessage-ID: <demo.jp." +
               std::to_string(serial) +
               "@sakura-net.example>\r\nMIME-Version: 1.0\r\n"
               "Content-Type: text/plain; charset=utf-8\r\n"
               "Content-Transfer-Encoding: base64\r\n\r\n" +
               base64("ロビンさん、\n\nお花見の写真を送ります。桜がとてもきれいでした。\n\n愛子\n");
    case 2: // Russian in KOI8-R ("Привет, Робин!")
        return head + "Content-Type: text/plain; charset=koi8-r\r\n"
                      "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                      "=F0=D2=C9=D7=C5=D4, =F2=CF=C2=C9=CE!\r\n\r\nOlga\r\n";
    default: // plain UTF-8, sometimes with a photo
        if (random.below(3) == 0) {
            std::string photo = "\xFF\xD8\xFF\xE0 fictional photo bytes " + std::to_string(serial);
            return head +
                   "Content-Type: multipart/mixed; boundary=\"demo-photo\"\r\n\r\n"
                   "--demo-photo\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n"
                   "Here’s the picture from the lake. Ça va?\r\n\r\n"
                   "--demo-photo\r\nContent-Type: image/jpeg; name=\"lake.jpg\"\r\n"
                   "Content-Disposition: attachment; filename=\"lake.jpg\"\r\n"
                   "Content-Transfer-Encoding: base64\r\n\r\n" +
                   base64(photo) + "--demo-photo--\r\n";
        }
        return head +
               "Content-Type: text/plain; charset=utf-8\r\n\r\n"
               "Hi Robin,\r\n\r\nAre we still on for " +
               subject + "? Bring the good umbrella.\r\n\r\n— " + std::string(from.name) + "\r\n";
    }
}

std::string work(Random& random, const Stamp& stamp, int serial) {
    const Person& from = random.pick(colleagues);
    std::string project(random.pick(projects));
    std::string head = header(addressOf(from), addressOf(owner), project, stamp, serial);
    if (random.below(2) == 0) {
        std::string sheet = "item;amount\r\npaper;120,00 €\r\nink;45,50 €\r\n";
        return head +
               "Content-Type: multipart/mixed; boundary=\"demo-work\"\r\n\r\n"
               "--demo-work\r\nContent-Type: text/plain; charset=windows-1252\r\n"
               "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
               "Robin, the figures for " +
               project + " are attached =96 total =80 165,50.\r\n\r\n" +
               "--demo-work\r\nContent-Type: text/csv; charset=utf-8; name=\"figures.csv\"\r\n"
               "Content-Disposition: attachment; filename=\"figures.csv\"\r\n"
               "Content-Transfer-Encoding: base64\r\n\r\n" +
               base64(sheet) + "--demo-work\r\nContent-Type: application/pdf; name=\"" + project +
               ".pdf\"\r\nContent-Disposition: attachment; filename=\"" + project +
               ".pdf\"\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
               base64("%PDF-1.4\n% fictional document\n%%EOF\n") + "--demo-work--\r\n";
    }
    return head +
           "Content-Type: text/plain; charset=iso-8859-1\r\n"
           "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
           "Bonjour Robin,\r\n\r\nvoici le r=E9sum=E9 de la r=E9union sur " +
           project + ". =C0 bient=F4t.\r\n";
}

std::string newsletter(Random& random, const Stamp& stamp, int serial) {
    const Newsletter& letter = random.pick(newsletters);
    std::string domain(letter.domain);
    std::string subject = std::string(letter.name) + " — " +
                          std::string(monthNames[static_cast<size_t>(stamp.month - 1)]) + " " +
                          std::to_string(stamp.year) + " edition";
    std::string head =
        header("\"" + std::string(letter.name) + "\" <" + std::string(letter.address) + ">",
               std::string(owner.address), subject, stamp, serial) +
        "List-Unsubscribe: <https://" + domain + "/unsubscribe?u=" + std::to_string(serial) +
        ">\r\n";
    std::string html = "<html><body><h1>" + std::string(letter.name) +
                       "</h1><img src=\"https://cdn." + domain +
                       "/banner.jpg\" alt=\"banner\"><p>This month’s picks, just for you.</p>"
                       "<p><a href=\"https://" +
                       domain +
                       "/offers?utm_source=newsletter&utm_medium=email\">See the offers</a></p>"
                       "<img src=\"https://" +
                       std::string(letter.tracker) + "/open.gif?r=" + std::to_string(serial) +
                       "\" width=\"1\" height=\"1\" alt=\"\"></body></html>";
    return head +
           "Content-Type: multipart/alternative; boundary=\"demo-news\"\r\n\r\n"
           "--demo-news\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n"
           "This month’s picks, just for you: https://" +
           domain +
           "/offers\r\n\r\n"
           "--demo-news\r\nContent-Type: text/html; charset=utf-8\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\n" +
           base64(html) + "--demo-news--\r\n";
}

std::string sent(Random& random, const Stamp& stamp, int serial) {
    const Person& to = random.pick(family);
    return header(addressOf(owner), addressOf(to), "Re: " + std::string(random.pick(topics)), stamp,
                  serial) +
           "Content-Type: text/plain; charset=utf-8\r\n\r\n"
           "Sounds good — see you then!\r\n\r\nRobin\r\n";
}

/// The few hostile messages: a look-alike of the bank's domain, a display name that claims
/// the bank's address, a reply address elsewhere, links whose text names another site and
/// the bank's logo from the web.
std::string phishing(int variant, const Stamp& stamp, int serial) {
    std::string from;
    switch (variant % 3) {
    case 0:
        from = "\"Northbank\" <statements@n0rthbank.example>";
        break;
    case 1:
        from = "\"statements@northbank.example\" <alerts@mailer-7.example>";
        break;
    default:
        from = "\"Northbank Security\" <security@northbank-verify.example>";
        break;
    }
    std::string html =
        "<html><body><img src=\"https://cdn.northbank.example/logo.png\" alt=\"Northbank\" "
        "width=\"160\" height=\"40\"><p>Dear customer,</p><p>We noticed an unusual sign-in. "
        "Please confirm your details within 24 hours or your account will be suspended.</p>"
        "<p><a href=\"https://login.secure-check.example/northbank/verify\">"
        "https://www.northbank.example/account</a></p>"
        "<img src=\"https://t.secure-check.example/o.gif\" width=\"1\" height=\"1\"></body></html>";
    return header(from, std::string(owner.address), "Urgent: confirm your Northbank account", stamp,
                  serial) +
           "Reply-To: <support@collect-desk.example>\r\n"
           "Authentication-Results: mx.ashdown.example; spf=fail smtp.mailfrom=mailer-7.example; "
           "dkim=none; dmarc=fail\r\n"
           "Content-Type: multipart/alternative; boundary=\"demo-phish\"\r\n\r\n"
           "--demo-phish\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n"
           "Please confirm your details: https://login.secure-check.example/northbank/verify\r\n"
           "\r\n--demo-phish\r\nContent-Type: text/html; charset=utf-8\r\n\r\n" +
           html + "\r\n--demo-phish--\r\n";
}

} // namespace

const std::vector<std::string>& DemoMail::folders() {
    static const std::vector<std::string> names{"INBOX", "Archive", "Newsletters", "Sent"};
    return names;
}

std::vector<DemoMessage> DemoMail::generate(uint64_t seed, int count, int lastYear) {
    Random random(seed);
    std::vector<DemoMessage> messages;
    messages.reserve(static_cast<size_t>(count));
    constexpr int years = 15;
    // Spread evenly over the months, so every month of the fifteen years has mail.
    const int months = years * 12;
    int phishingMade = 0;
    for (int serial = 0; serial < count; ++serial) {
        int monthIndex = static_cast<int>(static_cast<int64_t>(serial) * months / count);
        Stamp stamp{lastYear - years + 1 + monthIndex / 12, monthIndex % 12 + 1, 1, 0, 0};
        stamp.day = 1 + random.below(daysIn(stamp.year, stamp.month));
        stamp.hour = 7 + random.below(15);
        stamp.minute = random.below(60);
        // A phishing message every ~60th, and always some in the last year.
        bool phish = serial % 61 == 60 || (serial >= count - 4 && phishingMade < 3);
        if (phish) {
            messages.push_back({"INBOX", phishing(phishingMade++, stamp, serial), instant(stamp)});
            continue;
        }
        int kind = random.below(10);
        if (kind < 4)
            messages.push_back({"INBOX", personal(random, stamp, serial), instant(stamp)});
        else if (kind < 6)
            messages.push_back({"Archive", work(random, stamp, serial), instant(stamp)});
        else if (kind < 9)
            messages.push_back({"Newsletters", newsletter(random, stamp, serial), instant(stamp)});
        else
            messages.push_back({"Sent", sent(random, stamp, serial), instant(stamp)});
    }
    return messages;
}

} // namespace qs::demo
