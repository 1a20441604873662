#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

typedef struct ssl_ctx_st SSL_CTX;

namespace qs::test {

/// A small HTTPS server on 127.0.0.1 (port 0) for tests of programs that fetch over HTTPS: a
/// table of paths and canned responses, a record of the requests, and a way to stop a
/// response half-way until the test lets it go on. Its certificate is issued by the trusted
/// test CA (TestCertificates.h), so a client's real certificate check passes. Unknown paths
/// get 404. One connection is served at a time, each closed after its response.
///
///     HTTPSServer server;
///     server.route("/feed.json", {200, R"({"version":"2.0","url":"https://x"})"});
///     fetch(server.url("/feed.json"));
///     EXPECT_EQ(server.requests().at(0).headers.at("user-agent"), "App/1.0");
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
    void serve();
    void answer(int connection);

    SSL_CTX* context_ = nullptr;
    int listener_ = -1;
    int wake_[2] = {-1, -1};
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable released_;
    bool releasedFlag_ = false;
    bool stopping_ = false;
    std::map<std::string, Response> routes_;
    std::vector<Request> requests_;
    std::thread thread_;
};

} // namespace qs::test
