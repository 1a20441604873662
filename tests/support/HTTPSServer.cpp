#include "support/HTTPSServer.h"

#include "support/TestCertificates.h"

#include <openssl/ssl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace qs::test {

namespace {

namespace fs = std::filesystem;

// The server's certificate, made once per test program.
const fs::path& certificateFolder() {
    static const fs::path folder = [] {
        const CertificateAuthority& ca = trustedCA();
        fs::path path = ca.certificate.parent_path() / "https";
        fs::create_directories(path);
        issueServerCertificate(ca, path, "");
        return path;
    }();
    return folder;
}

bool writeAll(SSL* ssl, std::string_view bytes) {
    while (!bytes.empty()) {
        const int written = SSL_write(ssl, bytes.data(), int(bytes.size()));
        if (written <= 0)
            return false;
        bytes.remove_prefix(size_t(written));
    }
    return true;
}

} // namespace

HTTPSServer::HTTPSServer() {
    const fs::path& folder = certificateFolder();
    context_ = SSL_CTX_new(TLS_server_method());
    if (!context_ ||
        SSL_CTX_use_certificate_chain_file(context_, (folder / "server-chain.pem").c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context_, (folder / "server.key").c_str(), SSL_FILETYPE_PEM) !=
            1)
        throw std::runtime_error("HTTPSServer: the certificate can't be loaded");
    listener_.emplace("HTTPSServer", [this](int connection) {
        answer(connection);
        ::close(connection);
    });
}

HTTPSServer::~HTTPSServer() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    released_.notify_all();
    listener_.reset();
    SSL_CTX_free(context_);
}

void HTTPSServer::route(const std::string& path, Response response) {
    std::lock_guard lock(mutex_);
    routes_[path] = std::move(response);
}

std::string HTTPSServer::url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(listener_->port()) + path;
}

std::vector<HTTPSServer::Request> HTTPSServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

void HTTPSServer::release() {
    {
        std::lock_guard lock(mutex_);
        releasedFlag_ = true;
    }
    released_.notify_all();
}

void HTTPSServer::answer(int connection) {
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context_), &SSL_free);
    SSL_set_fd(ssl.get(), connection);
    if (SSL_accept(ssl.get()) != 1)
        return;
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
        const int got = SSL_read(ssl.get(), buffer, sizeof buffer);
        if (got <= 0)
            return;
        head.append(buffer, size_t(got));
    }
    Request request;
    std::istringstream lines(head);
    std::string line;
    std::getline(lines, line);
    request.path = line.substr(line.find(' ') + 1, line.rfind(' ') - line.find(' ') - 1);
    while (std::getline(lines, line) && line.find(':') != std::string::npos) {
        std::string name = line.substr(0, line.find(':'));
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        request.headers[name] = line.substr(line.find_first_not_of(' ', name.size() + 1));
        request.headers[name].pop_back(); // the CR
    }
    Response response{404, "not here", std::nullopt};
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
        if (auto found = routes_.find(request.path); found != routes_.end())
            response = found->second;
    }
    const std::string status = "HTTP/1.1 " + std::to_string(response.status) +
                               (response.status == 200 ? " OK" : " Status") +
                               "\r\nContent-Length: " + std::to_string(response.body.size()) +
                               "\r\nContent-Type: application/octet-stream"
                               "\r\nConnection: close\r\n\r\n";
    const size_t first =
        std::min(response.holdAfter.value_or(response.body.size()), response.body.size());
    if (!writeAll(ssl.get(), status) ||
        !writeAll(ssl.get(), std::string_view(response.body).substr(0, first)))
        return;
    if (first < response.body.size()) {
        std::unique_lock lock(mutex_);
        released_.wait(lock, [this] { return releasedFlag_ || stopping_; });
        if (stopping_)
            return;
        lock.unlock();
        writeAll(ssl.get(), std::string_view(response.body).substr(first));
    }
    SSL_shutdown(ssl.get());
}

} // namespace qs::test
