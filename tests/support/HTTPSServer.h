#pragma once

#include "support/Loopback.h"

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

typedef struct ssl_ctx_st SSL_CTX;

namespace qs::test {

/// An HTTPS server on 127.0.0.1 with canned responses by path (404 for the rest), a record of
/// the requests, and a way to stop a response half-way until the test lets it go on. Its
/// certificate comes from the trusted test CA, so a client's real check passes. One connection
/// at a time, each closed after its response.
class HTTPSServer {
public:
    struct Response {
        int status = 200;
        std::string body;
        /// Send only this many bytes of the body, then wait for release().
        std::optional<size_t> holdAfter;
    };
    struct Request {
        std::string path;
        /// Header names in lower case.
        std::map<std::string, std::string> headers;
    };

    HTTPSServer();
    ~HTTPSServer();
    HTTPSServer(const HTTPSServer&) = delete;
    HTTPSServer& operator=(const HTTPSServer&) = delete;

    void route(const std::string& path, Response response);
    /// "https://127.0.0.1:{port}{path}".
    std::string url(const std::string& path) const;
    std::vector<Request> requests() const;
    /// Lets every held response finish.
    void release();

private:
    void answer(int connection);

    SSL_CTX* context_ = nullptr;
    mutable std::mutex mutex_;
    std::condition_variable released_;
    bool releasedFlag_ = false;
    bool stopping_ = false;
    std::map<std::string, Response> routes_;
    std::vector<Request> requests_;
    std::optional<Loopback::Listener> listener_;
};

} // namespace qs::test
