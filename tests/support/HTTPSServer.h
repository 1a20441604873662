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

/// An HTTPS server on 127.0.0.1, certified by the trusted test CA, with canned responses by path
/// (404 for the rest) and a record of the requests; one connection at a time.
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
        std::map<std::string, std::string> headers;
    };

    HTTPSServer();
    ~HTTPSServer();
    HTTPSServer(const HTTPSServer&) = delete;
    HTTPSServer& operator=(const HTTPSServer&) = delete;

    void route(const std::string& path, Response response);
    std::string url(const std::string& path) const;
    std::vector<Request> requests() const;
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
