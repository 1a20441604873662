#include "imap/IMAPClient.h"

#include "imap/IMAPKeyword.h"
#include "imap/IMAPQuote.h"
#include "support/Cancellation.h"

#include <algorithm>
#include <cstdio>

namespace qs {

namespace {

using IMAPKeyword::upper;

// Plain TCP is for a developer's own server on this machine, spelt exactly so: no other
// spelling of the loopback address is taken, so a typo can't send a password in clear.
constexpr std::string_view plaintextHost = "127.0.0.1";

} // namespace

IMAPClient::IMAPClient(IMAPServer server, std::chrono::milliseconds timeout, std::stop_token stop)
    : server_(std::move(server)), timeout_(timeout), stop_(std::move(stop)) {}

IMAPClient::~IMAPClient() {
    disconnect();
}

void IMAPClient::connect() {
    if (server_.plaintextLocalDev && server_.host != plaintextHost) {
        throw IMAPError::insecureNotAllowed();
    }
    if (server_.port == 0) {
        throw IMAPError::connectionFailed("bad port");
    }
    transport_ = Transport::open(server_, server_.plaintextLocalDev, timeout_, stop_);

    IMAPResponse greeting = readResponse();
    const IMAPResponse::UntaggedStatus* status = greeting.untaggedStatus();
    if (status && status->status == IMAPStatus::bye) {
        throw IMAPError::connectionFailed(status->text);
    }
    if (!status || (status->status != IMAPStatus::ok && status->status != IMAPStatus::preauth)) {
        throw IMAPError::protocolError("no greeting");
    }
    if (status->code && upper(*status->code).starts_with("CAPABILITY")) {
        parseCapabilities(*status->code);
    }
}

void IMAPClient::disconnect() {
    if (transport_) {
        transport_->close();
        transport_.reset();
    }
}

void IMAPClient::parseCapabilities(std::string_view codeText) {
    std::set<std::string> words;
    bool first = true;
    size_t i = 0;
    while (i < codeText.size()) {
        size_t end = codeText.find(' ', i);
        if (end == std::string_view::npos) {
            end = codeText.size();
        }
        if (end > i) {
            if (!first) {
                words.insert(upper(std::string(codeText.substr(i, end - i))));
            }
            first = false;
        }
        i = end + 1;
    }
    capabilities_ = std::move(words);
}

void IMAPClient::send(std::string_view bytes) {
    if (!transport_) {
        throw IMAPError::closed();
    }
    transport_->send(bytes);
}

IMAPResponse IMAPClient::readResponse() {
    for (;;) {
        if (std::optional<IMAPResponse> response = reader_.next()) {
            return std::move(*response);
        }
        checkCancelled(stop_);
        if (!transport_) {
            throw IMAPError::closed();
        }
        // Received straight into the reader: a body's bytes land in their own string.
        std::span<char> area = reader_.receiveArea(maximumChunk);
        std::size_t count = 0;
        try {
            count = transport_->receive(area, timeout_);
        } catch (...) {
            reader_.commit(0);
            throw;
        }
        bytesRead_.fetch_add(static_cast<int64_t>(count), std::memory_order_relaxed);
        reader_.commit(count);
    }
}

IMAPClient::Completion IMAPClient::run(std::string_view command, const std::vector<Arg>& args,
                                       const UntaggedHandler& onUntagged) {
    char tag[24];
    std::snprintf(tag, sizeof tag, "M%04lld", static_cast<long long>(++tagCounter_));

    // The line is cut after each literal's announcement: (text up to and including "{n}" CR
    // LF, the literal's bytes) pairs, then the rest of the line.
    std::vector<std::pair<std::string, const std::string*>> pieces;
    std::string line = std::string(tag) + " " + std::string(command);
    for (const Arg& arg : args) {
        line += ' ';
        switch (arg.kind) {
        case Arg::Kind::raw:
            line += arg.text;
            break;
        case Arg::Kind::string:
            if (!IMAPQuote::needsLiteral(arg.text)) {
                line += IMAPQuote::quoted(arg.text);
            } else {
                // Synchronising literals only: "{n+}" is never sent, whatever is advertised.
                line += "{" + std::to_string(arg.text.size()) + "}\r\n";
                pieces.emplace_back(std::move(line), &arg.text);
                line.clear();
            }
            break;
        }
    }
    line += "\r\n";

    auto deliver = [&](IMAPResponse& response) {
        if (onUntagged) {
            onUntagged(response);
        }
    };

    for (auto& [before, literal] : pieces) {
        send(before);
        for (;;) {
            IMAPResponse response = readResponse();
            if (response.continuation()) {
                break;
            }
            if (const IMAPResponse::Tagged* tagged = response.tagged()) {
                throw IMAPError::commandFailed("literal", tagged->status, tagged->text);
            }
            deliver(response);
        }
        send(*literal);
    }
    send(line);

    for (;;) {
        IMAPResponse response = readResponse();
        if (IMAPResponse::Tagged* tagged = response.tagged(); tagged && tagged->tag == tag) {
            if (tagged->code && upper(*tagged->code).starts_with("CAPABILITY")) {
                parseCapabilities(*tagged->code);
            }
            if (tagged->status == IMAPStatus::ok) {
                return Completion{std::move(tagged->code), std::move(tagged->text)};
            }
            throw IMAPError::commandFailed(std::string(command), tagged->status, tagged->text);
        }
        if (const IMAPResponse::UntaggedStatus* status = response.untaggedStatus();
            status && status->status == IMAPStatus::bye && command != "LOGOUT") {
            throw IMAPError::connectionFailed(status->text.empty() ? "server said goodbye"
                                                                   : status->text);
        }
        if (const IMAPResponse::Untagged* untagged = response.untagged();
            untagged && !untagged->values.empty() && untagged->values[0].text() &&
            upper(*untagged->values[0].text()) == "CAPABILITY") {
            std::set<std::string> words;
            for (size_t i = 1; i < untagged->values.size(); ++i) {
                const IMAPValue& value = untagged->values[i];
                if (!value.isList() && !value.isNil()) {
                    words.insert(upper(*value.text()));
                }
            }
            capabilities_ = std::move(words);
        }
        deliver(response);
    }
}

} // namespace qs
