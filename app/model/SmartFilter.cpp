#include "model/SmartFilter.h"

#include <ostream>

namespace qs::SmartFilters {

std::string_view rawValue(SmartFilter filter) {
    switch (filter) {
    case SmartFilter::recent:
        return "recent";
    case SmartFilter::attachments:
        return "attachments";
    case SmartFilter::trackers:
        return "trackers";
    case SmartFilter::suspicious:
        return "suspicious";
    case SmartFilter::large:
        return "large";
    }
    return {};
}

std::optional<SmartFilter> named(std::string_view raw) {
    for (auto filter : all) {
        if (rawValue(filter) == raw) {
            return filter;
        }
    }
    return std::nullopt;
}

std::string_view title(SmartFilter filter) {
    switch (filter) {
    case SmartFilter::recent:
        return "Last 30 Days";
    case SmartFilter::attachments:
        return "With Attachments";
    case SmartFilter::trackers:
        return "Trackers Blocked";
    case SmartFilter::suspicious:
        return "Needs a Second Look";
    case SmartFilter::large:
        return "Over 5 MB";
    }
    return {};
}

std::string_view symbol(SmartFilter filter) {
    switch (filter) {
    case SmartFilter::recent:
        return "clock";
    case SmartFilter::attachments:
        return "paperclip";
    case SmartFilter::trackers:
        return "eye.slash";
    case SmartFilter::suspicious:
        return "exclamationmark.shield";
    case SmartFilter::large:
        return "scalemass";
    }
    return {};
}

bool contains(SmartFilter filter, const MessageRecord& record, Date now) {
    switch (filter) {
    case SmartFilter::recent:
        return record.date > now - std::chrono::seconds(recentSeconds);
    case SmartFilter::attachments:
        return record.attachments > 0;
    case SmartFilter::trackers:
        return record.trackers > 0;
    case SmartFilter::suspicious:
        return record.isSuspicious();
    case SmartFilter::large:
        return record.size > largeBytes;
    }
    return false;
}

} // namespace qs::SmartFilters

namespace qs {

std::ostream& operator<<(std::ostream& out, SmartFilter filter) {
    return out << SmartFilters::rawValue(filter);
}

} // namespace qs
