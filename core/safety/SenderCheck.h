#pragma once

#include "mime/MailAddress.h"
#include "safety/SenderFlag.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Looks for senders that pretend to be someone else: a domain in the display name, a known
/// name at a new domain, a brand in the name, a domain that imitates a brand or a sender the
/// user already knows, international characters in the domain. Pure; safe on any thread; the
/// cost per message is bounded by the 38 brands and the known domains.
namespace qs::SenderCheck {

/// The findings about `address`, in the order of the tests: `punycode`, then at most one
/// `displayName` flag, then at most one `lookalike` flag. Empty without an address or a domain.
/// A message from one of a brand's own domains gets no look-alike flag at all.
///
/// `knownDomains` are the registrable domains of the vault's learned senders; `knownNames`
/// maps a lower-cased, trimmed display name to the registrable domain it usually writes from.
/// Both are empty at index time, which turns the tests against known senders off.
std::vector<SenderFlag> check(const std::optional<MailAddress>& address,
                              const std::set<std::string>& knownDomains = {},
                              const std::map<std::string, std::string>& knownNames = {});

/// The text lower-cased, with look-alike letter groups and digits replaced in a fixed order
/// (rn→m, vv→w, cl→d, 0→o, 1→l, 3→e, 5→s, 4→a, 7→t, 8→b) and "-" and "_" deleted, so that
/// paypa1, pay-pal and paypal share one skeleton.
std::string skeleton(std::string_view text);

/// The Levenshtein distance with unit costs, counted in user-perceived characters.
int distance(std::string_view a, std::string_view b);

} // namespace qs::SenderCheck
