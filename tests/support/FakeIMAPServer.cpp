#include "support/FakeIMAPServer.h"

#include "support/Loopback.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qs::test {

namespace {

std::string upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

// The length of a `{n}` or `{n+}` at the very end of a client line, if there is one.
std::optional<size_t> trailingLiteral(std::string_view line) {
    if (line.empty() || line.back() != '}') {
        return std::nullopt;
    }
    size_t end = line.size() - 1;
    if (end > 0 && line[end - 1] == '+') {
        --end;
    }
    size_t begin = end;
    while (begin > 0 && std::isdigit(static_cast<unsigned char>(line[begin - 1]))) {
        --begin;
    }
    if (begin == end || begin == 0 || line[begin - 1] != '{' || end - begin > 12) {
        return std::nullopt;
    }
    return std::stoull(std::string(line.substr(begin, end - begin)));
}

std::string unescape(std::string_view text, int lineNumber) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        if (++i == text.size()) {
            throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                        ": a lone backslash ends a B: step");
        }
        switch (text[i]) {
        case 'r':
            out += '\r';
            break;
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case '\\':
            out += '\\';
            break;
        case 'x':
            if (i + 2 >= text.size()) {
                throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                            ": \\x needs two hex digits");
            }
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
            break;
        default:
            throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                        ": unknown escape \\" + std::string(1, text[i]));
        }
    }
    return out;
}

std::string firstWord(std::string_view line) {
    return std::string(line.substr(0, line.find(' ')));
}

} // namespace

// Buffered reading from the client that gives up as soon as the server is being destroyed.
class FakeIMAPServer::Reader {
public:
    Reader(int fd, int wakeFd) : fd_(fd), wakeFd_(wakeFd) {}

    /// The next line without its line end; nothing at end of stream or on shutdown.
    std::optional<std::string> line() {
        for (;;) {
            size_t lf = buffer_.find('\n');
            if (lf != std::string::npos) {
                std::string result = buffer_.substr(0, lf);
                buffer_.erase(0, lf + 1);
                if (!result.empty() && result.back() == '\r') {
                    result.pop_back();
                }
                return result;
            }
            if (!fill()) {
                return std::nullopt;
            }
        }
    }

    /// Exactly `count` bytes; nothing at end of stream or on shutdown.
    std::optional<std::string> bytes(size_t count) {
        while (buffer_.size() < count) {
            if (!fill()) {
                return std::nullopt;
            }
        }
        std::string result = buffer_.substr(0, count);
        buffer_.erase(0, count);
        return result;
    }

private:
    bool fill() {
        pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
        for (;;) {
            int ready = ::poll(fds, 2, -1);
            if (ready < 0 && errno == EINTR) {
                continue;
            }
            if (ready < 0 || (fds[1].revents & POLLIN)) {
                return false;
            }
            break;
        }
        char chunk[65536];
        ssize_t count = ::recv(fd_, chunk, sizeof chunk, 0);
        if (count <= 0) {
            return false;
        }
        buffer_.append(chunk, static_cast<size_t>(count));
        return true;
    }

    int fd_;
    int wakeFd_;
    std::string buffer_;
};

void FakeIMAPConnection::send(std::string_view line) {
    std::string bytes(line);
    bytes += "\r\n";
    sendRaw(bytes);
}

void FakeIMAPConnection::sendRaw(std::string_view bytes) {
    if (!Loopback::sendAll(fd_, bytes)) {
        closeRequested_ = true; // the client is gone; nothing more can be said
    }
}

FakeIMAPServer::FakeIMAPServer(std::string_view scenario) {
    scripts_.emplace_back();
    int lineNumber = 0;
    size_t position = 0;
    while (position <= scenario.size()) {
        size_t lf = scenario.find('\n', position);
        std::string_view raw = scenario.substr(
            position, lf == std::string_view::npos ? std::string_view::npos : lf - position);
        position = lf == std::string_view::npos ? scenario.size() + 1 : lf + 1;
        ++lineNumber;
        std::string_view line = trimmed(raw);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        Step step{Step::Kind::send, {}, 0, lineNumber};
        if (line == "---") {
            scripts_.emplace_back();
            continue;
        } else if (line.starts_with("S:")) {
            step.text = std::string(trimmed(line.substr(2)));
        } else if (line.starts_with("B:")) {
            std::string_view rest = line.substr(2);
            if (rest.starts_with(' ')) {
                rest.remove_prefix(1);
            }
            step.text = unescape(rest, lineNumber);
        } else if (line.starts_with("C:")) {
            step.kind = Step::Kind::expect;
            step.text = std::string(trimmed(line.substr(2)));
        } else if (line == "X") {
            step.kind = Step::Kind::close;
        } else if (line == "stall") {
            step.kind = Step::Kind::stall;
        } else if (line.starts_with("trickle ")) {
            size_t colon = line.find(':');
            if (colon == std::string_view::npos) {
                throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                            ": trickle needs `trickle MS: text`");
            }
            step.kind = Step::Kind::trickle;
            step.interval = std::stoi(std::string(line.substr(8, colon - 8)));
            step.text = std::string(trimmed(line.substr(colon + 1))) + "\r\n";
        } else {
            throw std::invalid_argument("scenario line " + std::to_string(lineNumber) +
                                        ": unknown step `" + std::string(line) + "`");
        }
        if (step.kind == Step::Kind::send && line.starts_with("S:")) {
            step.text += "\r\n";
        }
        scripts_.back().push_back(std::move(step));
    }
    serve();
}

FakeIMAPServer::FakeIMAPServer(std::string greeting, Handler handler)
    : greeting_(std::move(greeting)), handler_(std::move(handler)) {
    serve();
}

FakeIMAPServer::~FakeIMAPServer() {
    char byte = 1;
    // The byte stays unread, so every poll on the wake pipe returns at once from now on.
    [[maybe_unused]] ssize_t ignored = ::write(wakeWrite_, &byte, 1);
    if (thread_.joinable()) {
        thread_.join();
    }
    ::close(listenFd_);
    ::close(wakeRead_);
    ::close(wakeWrite_);
}

void FakeIMAPServer::serve() {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    wakeRead_ = pipeFds[0];
    wakeWrite_ = pipeFds[1];

    listenFd_ = Loopback::listen(port_, 16, "fake IMAP server");

    thread_ = std::thread([this] {
        for (;;) {
            pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
            int ready = ::poll(fds, 2, -1);
            if (ready < 0 && errno == EINTR) {
                continue;
            }
            if (ready < 0 || (fds[1].revents & POLLIN)) {
                return;
            }
            int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            // Scenario lines go out one send each; don't let them wait for the client's ACKs.
            int one = 1;
            ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            size_t index;
            {
                std::lock_guard lock(mutex_);
                index = static_cast<size_t>(connections_++);
            }
            changed_.notify_all();
            if (handler_) {
                runHandler(fd);
            } else if (index < scripts_.size()) {
                runScript(fd, scripts_[index]);
            }
            ::close(fd);
        }
    });
}

void FakeIMAPServer::runScript(int fd, const std::vector<Step>& steps) {
    Reader reader(fd, wakeRead_);
    bool finished = false;
    auto finish = [&] {
        if (!finished) {
            finished = true;
            {
                std::lock_guard lock(mutex_);
                ++scriptsDone_;
            }
            changed_.notify_all();
        }
    };
    std::string lastTag;
    // A `{n}` the client announced, and one the server agreed to with `+`; -1 for none.
    // (Plain integers: GCC's uninitialised-use check misreads optionals here.)
    long long pendingLiteral = -1;
    long long armedLiteral = -1;

    auto afterSend = [&](std::string_view text) {
        if (text.starts_with('+')) {
            armedLiteral = pendingLiteral;
        } else if (!text.starts_with('*')) {
            pendingLiteral = -1;
        }
    };

    for (const Step& step : steps) {
        std::string where = "scenario line " + std::to_string(step.lineNumber) + ": ";
        switch (step.kind) {
        case Step::Kind::send: {
            std::string text = step.text;
            if (size_t at = text.find("$TAG"); at != std::string::npos) {
                text.replace(at, 4, lastTag);
            }
            if (!sendAll(fd, text)) {
                fail(where + "the client had gone before the server sent `" + step.text + "`");
                finish();
                return;
            }
            afterSend(text);
            break;
        }
        case Step::Kind::trickle:
            for (char byte : step.text) {
                if (!sendAll(fd, std::string_view(&byte, 1))) {
                    fail(where + "the client had gone during the trickle");
                    finish();
                    return;
                }
                if (!pause(step.interval)) {
                    finish();
                    return;
                }
            }
            afterSend(step.text);
            break;
        case Step::Kind::expect: {
            std::optional<std::string> line;
            if (armedLiteral >= 0) {
                std::optional<std::string> literal =
                    reader.bytes(static_cast<size_t>(armedLiteral));
                std::optional<std::string> rest = literal ? reader.line() : std::nullopt;
                if (rest) {
                    line = *literal + *rest;
                }
            } else {
                line = reader.line();
            }
            bool wasLiteral = armedLiteral >= 0;
            armedLiteral = -1;
            if (!line) {
                fail(where + "expected `" + step.text + "`, but the client closed");
                finish();
                return;
            }
            record(*line);
            std::optional<size_t> announced = trailingLiteral(*line);
            pendingLiteral = announced ? static_cast<long long>(*announced) : -1;
            bool matches;
            if (step.text.starts_with("* ")) {
                size_t space = line->find(' ');
                matches = space != std::string::npos && std::string_view(*line).substr(space) ==
                                                            std::string_view(step.text).substr(1);
                lastTag = firstWord(*line);
            } else {
                matches = *line == step.text;
                if (!wasLiteral) {
                    lastTag = firstWord(*line);
                }
            }
            if (!matches) {
                fail(where + "expected `" + step.text + "`, got `" + *line + "`");
                finish();
                return;
            }
            break;
        }
        case Step::Kind::stall:
            finish();
            pause(-1);
            return;
        case Step::Kind::close:
            finish();
            return;
        }
    }
    finish();
    while (std::optional<std::string> line = reader.line()) {
        record(*line);
        fail("unexpected client line after the end of the scenario: `" + *line + "`");
    }
}

void FakeIMAPServer::runHandler(int fd) {
    Reader reader(fd, wakeRead_);
    FakeIMAPConnection connection(fd);
    connection.send(greeting_);
    while (!connection.closeRequested()) {
        std::optional<std::string> piece = reader.line();
        if (!piece) {
            return;
        }
        std::string full = *piece;
        while (std::optional<size_t> literal = trailingLiteral(*piece)) {
            connection.send("+ go ahead");
            std::optional<std::string> bytes = reader.bytes(*literal);
            piece = bytes ? reader.line() : std::nullopt;
            if (!piece) {
                return;
            }
            full += "\r\n" + *bytes + *piece;
        }
        record(full);
        try {
            handler_(connection, parseCommand(full));
        } catch (const std::exception& error) {
            fail(std::string("handler failed on `") + full + "`: " + error.what());
            return;
        }
    }
}

namespace {

// A `{n}` CR LF and its n bytes at `i`, as in a command that has its literals inline.
bool readLiteral(const std::string& line, size_t& i, std::string& token) {
    size_t close = line.find('}', i);
    if (close == std::string::npos) {
        return false;
    }
    std::optional<size_t> length = trailingLiteral(std::string_view(line).substr(i, close - i + 1));
    if (!length || line.compare(close + 1, 2, "\r\n") != 0) {
        return false;
    }
    token = line.substr(close + 3, *length);
    i = std::min(line.size(), close + 3 + *length);
    return true;
}

} // namespace

FakeIMAPCommand FakeIMAPServer::parseCommand(std::string line) {
    FakeIMAPCommand command;
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ') {
            ++i;
            continue;
        }
        std::string token;
        if (line[i] == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size()) {
                    ++i;
                }
                token += line[i];
            }
            ++i;
        } else if (line[i] == '(') {
            size_t begin = i;
            int depth = 0;
            bool quoted = false;
            for (; i < line.size(); ++i) {
                char c = line[i];
                if (quoted) {
                    if (c == '\\') {
                        ++i;
                    } else if (c == '"') {
                        quoted = false;
                    }
                } else if (c == '"') {
                    quoted = true;
                } else if (c == '(') {
                    ++depth;
                } else if (c == ')' && --depth == 0) {
                    ++i;
                    break;
                }
            }
            token = line.substr(begin, i - begin);
        } else if (line[i] == '{' && readLiteral(line, i, token)) {
            // token and position already taken
        } else {
            int depth = 0;
            for (; i < line.size(); ++i) {
                char c = line[i];
                if (c == '[') {
                    ++depth;
                } else if (c == ']') {
                    --depth;
                } else if (depth == 0 && c == ' ') {
                    break;
                }
                token += c;
            }
        }
        tokens.push_back(std::move(token));
    }
    size_t rest = 0;
    if (tokens.size() > rest) {
        command.tag = tokens[rest++];
    }
    if (tokens.size() > rest) {
        command.name = upper(tokens[rest++]);
        if (command.name == "UID" && tokens.size() > rest) {
            command.name += " " + upper(tokens[rest++]);
        }
    }
    command.arguments.assign(tokens.begin() + static_cast<std::ptrdiff_t>(rest), tokens.end());
    command.line = std::move(line);
    return command;
}

bool FakeIMAPServer::sendAll(int fd, std::string_view bytes) {
    return Loopback::sendAll(fd, bytes);
}

bool FakeIMAPServer::pause(int milliseconds) {
    pollfd wake{wakeRead_, POLLIN, 0};
    for (;;) {
        int ready = ::poll(&wake, 1, milliseconds);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        return ready == 0;
    }
}

void FakeIMAPServer::record(std::string line) {
    {
        std::lock_guard lock(mutex_);
        received_.push_back(std::move(line));
    }
    changed_.notify_all();
}

void FakeIMAPServer::fail(std::string message) {
    {
        std::lock_guard lock(mutex_);
        failures_.push_back(std::move(message));
    }
    changed_.notify_all();
}

std::vector<std::string> FakeIMAPServer::received() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::vector<std::string> FakeIMAPServer::failures() const {
    std::lock_guard lock(mutex_);
    return failures_;
}

int FakeIMAPServer::connectionCount() const {
    std::lock_guard lock(mutex_);
    return connections_;
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
