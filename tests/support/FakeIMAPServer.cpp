#include "support/FakeIMAPServer.h"

#include <cctype>
#include <netinet/in.h>
#include <netinet/tcp.h>
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

std::string unescape(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        size_t k = ++i < text.size() ? std::string_view("rn\\").find(text[i]) : text.npos;
        if (k == text.npos)
            throw std::invalid_argument("bad escape in `" + std::string(text) + "`");
        out += "\r\n\\"[k];
    }
    return out;
}

std::string upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Tokenises a command with its literals inline, the way FakeIMAPCommand describes.
FakeIMAPCommand parseCommand(std::string line) {
    std::vector<std::string> tokens;
    for (size_t i = 0; i < line.size();) {
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
            // An atom, or a list as sent, to its closing parenthesis.
            for (int depth = 0; i < line.size() && (depth > 0 || line[i] != ' '); ++i) {
                depth += (line[i] == '(') - (line[i] == ')');
                token += line[i];
            }
        }
        tokens.push_back(std::move(token));
    }
    FakeIMAPCommand command;
    auto next = tokens.begin();
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

// Buffered reading from the client that gives up as soon as the server is being destroyed.
struct Reader {
    int fd;
    const Loopback::Listener& listener;
    std::string buffer;

    // `count` bytes, or with none the next line without its line end; nothing at end of
    // stream or on shutdown.
    std::optional<std::string> next(std::optional<size_t> count = std::nullopt) {
        size_t lf;
        while (count ? buffer.size() < *count : (lf = buffer.find('\n')) == std::string::npos) {
            char chunk[65536];
            ssize_t got = listener.wait({fd}) == 0 ? ::recv(fd, chunk, sizeof chunk, 0) : -1;
            if (got <= 0)
                return std::nullopt;
            buffer.append(chunk, static_cast<size_t>(got));
        }
        const size_t size = count ? *count : lf;
        std::string result = buffer.substr(0, size);
        buffer.erase(0, count ? size : size + 1);
        if (!count && result.ends_with('\r'))
            result.pop_back();
        return result;
    }
};

} // namespace

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
        Step step{'S', {}, 0, ++lineNumber};
        const size_t colon = line.find(':');
        if (line.empty()) {
            continue;
        } else if (line == "---") {
            scripts_.emplace_back();
            continue;
        } else if (line.starts_with("S:") || line.starts_with("C:")) {
            step.kind = line[0];
            step.text = std::string(trimmed(line.substr(2))) + (line[0] == 'S' ? "\r\n" : "");
        } else if (line.starts_with("B: ")) {
            step.text = unescape(line.substr(3));
        } else if (line == "X" || line == "stall") {
            step.kind = line[0];
        } else if (line.starts_with("trickle ") && colon != std::string_view::npos) {
            step.text = std::string(trimmed(line.substr(colon + 1))) + "\r\n";
            step.interval = std::stoi(std::string(line.substr(8, colon - 8)));
        } else {
            throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                        ": unknown step `" + std::string(line) + "`");
        }
        scripts_.back().push_back(std::move(step));
    }
    listener_.emplace("fake IMAP server", [this](int fd) { serve(fd); });
}

FakeIMAPServer::FakeIMAPServer(std::string greeting, Handler handler)
    : greeting_(std::move(greeting)), handler_(std::move(handler)) {
    listener_.emplace("fake IMAP server", [this](int fd) { serve(fd); });
}

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
    Reader reader{fd, *listener_, {}};
    auto finish = [&](std::string failure = {}) {
        {
            std::lock_guard lock(mutex_);
            if (!failure.empty())
                failures_.push_back(std::move(failure));
            ++scriptsDone_;
        }
        changed_.notify_all();
    };
    for (const Step& step : steps) {
        std::string where = "scenario line " + std::to_string(step.lineNumber) + ": ";
        if (step.kind == 'S') {
            for (size_t at = 0; at < step.text.size(); at += step.interval ? 1 : step.text.size()) {
                if (!Loopback::sendAll(fd,
                                       step.text.substr(at, step.interval ? 1 : step.text.npos)))
                    return finish(where + "the client had gone before `" + step.text + "`");
                if (step.interval &&
                    listener_->wait({}, step.interval) != Loopback::Listener::timedOut)
                    return finish();
            }
        } else if (step.kind == 'C') {
            std::optional<std::string> line = reader.next();
            if (!line)
                return finish(where + "expected `" + step.text + "`, but the client closed");
            note(received_, *line);
            if (*line != step.text)
                return finish(where + "expected `" + step.text + "`, got `" + *line + "`");
        } else {
            finish();
            if (step.kind == 's')
                listener_->wait({});
            return;
        }
    }
    finish();
    while (std::optional<std::string> line = reader.next()) {
        note(received_, *line);
        note(failures_, "unexpected client line after the end of the scenario: `" + *line + "`");
    }
}

void FakeIMAPServer::runHandler(int fd) {
    Reader reader{fd, *listener_, {}};
    FakeIMAPConnection connection(fd);
    connection.send(greeting_);
    while (!connection.closeRequested()) {
        std::optional<std::string> piece = reader.next();
        if (!piece)
            return;
        std::string full = *piece;
        while (std::optional<size_t> literal = trailingLiteral(*piece)) {
            connection.send("+ go ahead");
            std::optional<std::string> bytes = reader.next(*literal);
            piece = bytes ? reader.next() : std::nullopt;
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

void FakeIMAPServer::note(std::vector<std::string>& list, std::string line) {
    {
        std::lock_guard lock(mutex_);
        list.push_back(std::move(line));
    }
    changed_.notify_all();
}

bool FakeIMAPServer::waitUntilDone(std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit,
                      [this] { return !failures_.empty() || scriptsDone_ >= scripts_.size(); });
    return failures_.empty() && scriptsDone_ >= scripts_.size();
}

} // namespace qs::test
