#include "support/FakeIMAPServer.h"

#include "support/Loopback.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qs::test {

namespace {

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t");
    const size_t end = text.find_last_not_of(" \t\r");
    return begin == std::string_view::npos ? "" : text.substr(begin, end + 1 - begin);
}

// The length of a `{n}` or `{n+}` at the very end of a client line, if there is one.
std::optional<size_t> trailingLiteral(std::string_view line) {
    if (!line.ends_with('}'))
        return std::nullopt;
    size_t end = line.size() - (line.ends_with("+}") ? 2 : 1);
    size_t begin = line.find_last_not_of("0123456789", end - 1) + 1;
    if (begin == end || begin == 0 || line[begin - 1] != '{' || end - begin > 12)
        return std::nullopt;
    return std::stoull(std::string(line.substr(begin, end - begin)));
}

std::invalid_argument badStep(int lineNumber, const std::string& what) {
    return std::invalid_argument("scenario line " + std::to_string(lineNumber) + ": " + what);
}

std::string unescape(std::string_view text, int lineNumber) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
        } else if (++i == text.size()) {
            throw badStep(lineNumber, "a lone backslash ends a B: step");
        } else if (size_t k = std::string_view("rnt\\").find(text[i]); k != std::string::npos) {
            out += "\r\n\t\\"[k];
        } else if (text[i] == 'x' && i + 2 < text.size()) {
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            throw badStep(lineNumber, "unknown escape \\" + std::string(1, text[i]));
        }
    }
    return out;
}

std::string firstWord(std::string_view line) {
    return std::string(line.substr(0, line.find(' ')));
}

// Tokenises a command with its literals inline, the way FakeIMAPCommand describes.
FakeIMAPCommand parseCommand(std::string line) {
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ') {
            ++i;
            continue;
        }
        std::string token;
        std::optional<size_t> literal;
        size_t close = line.find('}', i);
        if (line[i] == '{' && close != std::string::npos &&
            (literal = trailingLiteral(std::string_view(line).substr(i, close - i + 1))) &&
            line.compare(close + 1, 2, "\r\n") == 0) {
            token = line.substr(close + 3, *literal);
            i = std::min(line.size(), close + 3 + *literal);
        } else if (line[i] == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                i += line[i] == '\\' && i + 1 < line.size();
                token += line[i];
            }
            ++i;
        } else {
            // An atom, with [..] kept whole; or a list, to its closing parenthesis.
            const bool list = line[i] == '(';
            int depth = 0;
            bool quoted = false;
            for (; i < line.size(); ++i) {
                const char c = line[i];
                if (quoted) {
                    quoted = c != '"';
                    if (c == '\\')
                        token += line[i++];
                } else if (c == '"' && list) {
                    quoted = true;
                } else if (c == '(' || c == '[') {
                    ++depth;
                } else if (c == ')' || c == ']') {
                    --depth;
                } else if (depth == 0 && c == ' ') {
                    break;
                }
                if (i < line.size())
                    token += line[i];
                if (list && depth == 0) {
                    ++i;
                    break;
                }
            }
        }
        tokens.push_back(std::move(token));
    }
    FakeIMAPCommand command;
    auto next = tokens.begin();
    auto upper = [](std::string text) {
        for (char& c : text)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    };
    if (next != tokens.end())
        command.tag = *next++;
    if (next != tokens.end()) {
        command.name = upper(*next++);
        if (command.name == "UID" && next != tokens.end())
            command.name += " " + upper(*next++);
    }
    command.arguments.assign(next, tokens.end());
    command.line = std::move(line);
    return command;
}

} // namespace

// Buffered reading from the client that gives up as soon as the server is being destroyed.
class FakeIMAPServer::Reader {
public:
    Reader(int fd, const Loopback::Listener& listener) : fd_(fd), listener_(listener) {}

    /// The next line without its line end; nothing at end of stream or on shutdown.
    std::optional<std::string> line() {
        size_t lf;
        while ((lf = buffer_.find('\n')) == std::string::npos)
            if (!fill())
                return std::nullopt;
        std::string result = buffer_.substr(0, lf);
        buffer_.erase(0, lf + 1);
        if (result.ends_with('\r'))
            result.pop_back();
        return result;
    }

    /// Exactly `count` bytes; nothing at end of stream or on shutdown.
    std::optional<std::string> bytes(size_t count) {
        while (buffer_.size() < count)
            if (!fill())
                return std::nullopt;
        std::string result = buffer_.substr(0, count);
        buffer_.erase(0, count);
        return result;
    }

private:
    bool fill() {
        char chunk[65536];
        ssize_t count = listener_.wait({fd_}) == 0 ? ::recv(fd_, chunk, sizeof chunk, 0) : -1;
        if (count > 0)
            buffer_.append(chunk, static_cast<size_t>(count));
        return count > 0;
    }

    int fd_;
    const Loopback::Listener& listener_;
    std::string buffer_;
};

void FakeIMAPConnection::sendRaw(std::string_view bytes) {
    if (!Loopback::sendAll(fd_, bytes))
        closeRequested_ = true; // the client is gone; nothing more can be said
}

FakeIMAPServer::FakeIMAPServer(std::string_view scenario) {
    scripts_.emplace_back();
    int lineNumber = 0;
    for (size_t position = 0; position <= scenario.size();) {
        size_t lf = std::min(scenario.find('\n', position), scenario.size());
        std::string_view line = trimmed(scenario.substr(position, lf - position));
        position = lf + 1;
        ++lineNumber;
        Step step{Step::Kind::send, {}, 0, lineNumber};
        if (line.empty() || line.front() == '#') {
            continue;
        } else if (line == "---") {
            scripts_.emplace_back();
            continue;
        } else if (line.starts_with("S:")) {
            step.text = std::string(trimmed(line.substr(2))) + "\r\n";
        } else if (line.starts_with("B:")) {
            step.text = unescape(line.substr(line.starts_with("B: ") ? 3 : 2), lineNumber);
        } else if (line.starts_with("C:")) {
            step = {Step::Kind::expect, std::string(trimmed(line.substr(2))), 0, lineNumber};
        } else if (line == "X" || line == "stall") {
            step.kind = line == "X" ? Step::Kind::close : Step::Kind::stall;
        } else if (size_t colon = line.find(':');
                   line.starts_with("trickle ") && colon != std::string_view::npos) {
            step = {Step::Kind::send, std::string(trimmed(line.substr(colon + 1))) + "\r\n",
                    std::stoi(std::string(line.substr(8, colon - 8))), lineNumber};
        } else {
            throw badStep(lineNumber, "unknown step `" + std::string(line) + "`");
        }
        scripts_.back().push_back(std::move(step));
    }
    listener_.emplace("fake IMAP server", [this](int fd) { serve(fd); });
}

FakeIMAPServer::FakeIMAPServer(std::string greeting, Handler handler)
    : greeting_(std::move(greeting)), handler_(std::move(handler)) {
    listener_.emplace("fake IMAP server", [this](int fd) { serve(fd); });
}

FakeIMAPServer::~FakeIMAPServer() = default;

void FakeIMAPServer::serve(int fd) {
    // Scenario lines go out one send each; don't let them wait for the client's ACKs.
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    size_t index;
    {
        std::lock_guard lock(mutex_);
        index = static_cast<size_t>(connections_++);
    }
    changed_.notify_all();
    if (handler_)
        runHandler(fd);
    else if (index < scripts_.size())
        runScript(fd, scripts_[index]);
    ::close(fd);
}

void FakeIMAPServer::runScript(int fd, const std::vector<Step>& steps) {
    Reader reader(fd, *listener_);
    bool finished = false;
    auto finish = [&](std::string failure = {}) {
        if (!failure.empty())
            note(failures_, std::move(failure));
        if (!finished) {
            finished = true;
            std::lock_guard lock(mutex_);
            ++scriptsDone_;
        }
        changed_.notify_all();
    };
    std::string lastTag;
    // A `{n}` the client announced, and one the server agreed to with `+`; -1 for none.
    // (Plain integers: GCC's uninitialised-use check misreads optionals here.)
    long long pendingLiteral = -1;
    long long armedLiteral = -1;
    auto sent = [&](std::string_view text) {
        if (text.starts_with('+'))
            armedLiteral = pendingLiteral;
        else if (!text.starts_with('*'))
            pendingLiteral = -1;
    };

    for (const Step& step : steps) {
        std::string where = "scenario line " + std::to_string(step.lineNumber) + ": ";
        switch (step.kind) {
        case Step::Kind::send: {
            std::string text = step.text;
            if (size_t at = text.find("$TAG"); at != std::string::npos)
                text.replace(at, 4, lastTag);
            // A trickle goes one byte at a time, with a pause after each.
            for (size_t at = 0; at < text.size(); at += step.interval ? 1 : text.size()) {
                std::string_view piece =
                    std::string_view(text).substr(at, step.interval ? 1 : text.npos);
                if (!Loopback::sendAll(fd, piece))
                    return finish(where + "the client had gone before the server sent `" +
                                  step.text + "`");
                if (step.interval && !pause(step.interval))
                    return finish();
            }
            sent(text);
            break;
        }
        case Step::Kind::expect: {
            std::optional<std::string> line;
            const bool wasLiteral = armedLiteral >= 0;
            if (wasLiteral) {
                std::optional<std::string> literal = reader.bytes(size_t(armedLiteral));
                std::optional<std::string> rest = literal ? reader.line() : std::nullopt;
                if (rest)
                    line = *literal + *rest;
            } else {
                line = reader.line();
            }
            armedLiteral = -1;
            if (!line)
                return finish(where + "expected `" + step.text + "`, but the client closed");
            note(received_, *line);
            std::optional<size_t> announced = trailingLiteral(*line);
            pendingLiteral = announced ? static_cast<long long>(*announced) : -1;
            const bool anyTag = step.text.starts_with("* ");
            const size_t space = line->find(' ');
            const bool matches =
                anyTag ? space != std::string::npos && line->substr(space) == step.text.substr(1)
                       : *line == step.text;
            if (anyTag || !wasLiteral)
                lastTag = firstWord(*line);
            if (!matches)
                return finish(where + "expected `" + step.text + "`, got `" + *line + "`");
            break;
        }
        case Step::Kind::stall:
            finish();
            pause(-1);
            return;
        case Step::Kind::close:
            return finish();
        }
    }
    finish();
    while (std::optional<std::string> line = reader.line()) {
        note(received_, *line);
        note(failures_, "unexpected client line after the end of the scenario: `" + *line + "`");
    }
}

void FakeIMAPServer::runHandler(int fd) {
    Reader reader(fd, *listener_);
    FakeIMAPConnection connection(fd);
    connection.send(greeting_);
    while (!connection.closeRequested()) {
        std::optional<std::string> piece = reader.line();
        if (!piece)
            return;
        std::string full = *piece;
        while (std::optional<size_t> literal = trailingLiteral(*piece)) {
            connection.send("+ go ahead");
            std::optional<std::string> bytes = reader.bytes(*literal);
            piece = bytes ? reader.line() : std::nullopt;
            if (!piece)
                return;
            full += "\r\n" + *bytes + *piece;
        }
        note(received_, full);
        try {
            handler_(connection, parseCommand(full));
        } catch (const std::exception& error) {
            return note(failures_, "handler failed on `" + full + "`: " + error.what());
        }
    }
}

bool FakeIMAPServer::pause(int milliseconds) {
    return listener_->wait({}, milliseconds) == Loopback::Listener::timedOut;
}

void FakeIMAPServer::note(std::vector<std::string>& list, std::string line) {
    {
        std::lock_guard lock(mutex_);
        list.push_back(std::move(line));
    }
    changed_.notify_all();
}

bool FakeIMAPServer::ok() const {
    std::lock_guard lock(mutex_);
    return failures_.empty() && scriptsDone_ >= scripts_.size();
}

bool FakeIMAPServer::waitUntilDone(std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit,
                      [this] { return !failures_.empty() || scriptsDone_ >= scripts_.size(); });
    return failures_.empty() && scriptsDone_ >= scripts_.size();
}

} // namespace qs::test
