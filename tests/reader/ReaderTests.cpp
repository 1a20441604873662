// The reader on the real web engine, in a real window: a message's remote content must never
// reach the network unless the user asks for its pictures, and then only the pictures; links
// stop at a warning when they lie about where they go.

#include "model/AppStore.h"
#include "model/ReaderContent.h"
#include "model/SettingsKeys.h"
#include "support/FileSnapshot.h"
#include "support/QtTestEnvironment.h"
#include "support/QuickWindow.h"
#include "support/TemporaryDirectory.h"
#include "support/WebEngineStart.h"
#include "ui/NavigationPolicy.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QWebEngineLoadingInfo>
#include <QtQml/QQmlExtensionPlugin>
#include <gtest/gtest.h>

#include <fstream>

Q_IMPORT_QML_PLUGIN(QuernsteadPlugin)

namespace qs {
namespace {

// The engine must start before the application object.
const auto* environment = [] {
    test::startWebEngine();
    return ::testing::AddGlobalTestEnvironment(
        new test::QtTestEnvironment<QGuiApplication>("test_reader", false));
}();

// Stands in for the desktop's browser: remembers what it was asked to open.
class Opener : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void open(const QUrl& url) { opened << url; }
};

// A web server on 127.0.0.1, the witness of what a view fetched: it answers every request with
// a 1×1 PNG (so a picture that gets through really draws) and remembers connections and paths.
class RequestLog {
public:
    RequestLog() {
        server_.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server_, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection()) {
                ++connections_;
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->canReadLine())
                        return;
                    paths_ << QString::fromLatin1(socket->readLine().split(' ').value(1));
                    const QByteArray png =
                        QByteArray::fromBase64("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAQAAAC1HAwCAAAAC0l"
                                               "EQVR42mNkYAAAAAYAAjCB0C8AA"
                                               "AAASUVORK5CYII=");
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: " +
                                  QByteArray::number(png.size()) + "\r\nConnection: close\r\n\r\n" +
                                  png);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
    quint16 port() const { return server_.serverPort(); }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    const QStringList& paths() const { return paths_; }
    int connections() const { return connections_; }
    void clear() {
        paths_.clear();
        connections_ = 0;
    }

private:
    QTcpServer server_;
    QStringList paths_;
    int connections_ = 0;
};

// Every way an HTML mail can ask for something remote. `image`: the engine fetches it as a
// picture, so "Show images" lets it through.
struct Channel {
    const char* name;
    const char* html;
    bool image;
};

// clang-format off
const Channel channels[] = {
    {"img", R"(<img src="{}/img.png" width="40" height="40">)", true},
    {"picture", R"(<picture><source srcset="{}/picture.png"><img src="cid:x" width="40" height="40"></picture>)", true},
    {"srcset", R"(<img srcset="{}/srcset.png 1x" width="40" height="40">)", true},
    {"background", R"(<div style="background-image:url({}/background.png);width:40px;height:40px"></div>)", true},
    {"import", R"(<style>@import url({}/import.css);</style><p>x</p>)", false},
    {"stylesheet", R"(<link rel="stylesheet" href="{}/style.css"><p>x</p>)", false},
    {"preload", R"(<link rel="preload" href="{}/preload.js" as="script"><p>x</p>)", false},
    {"prefetch", R"(<link rel="prefetch" href="{}/prefetch.html"><p>x</p>)", false},
    {"dns-prefetch", R"(<link rel="dns-prefetch" href="{}/"><link rel="preconnect" href="{}/"><p>x</p>)", false},
    {"font", R"(<style>@font-face{font-family:Remote;src:url({}/font.woff)} p{font-family:Remote}</style><p>x</p>)", false},
    {"script", R"(<script src="{}/script.js"></script><p>x</p>)", false},
    {"iframe", R"(<iframe src="{}/frame.html"></iframe>)", false},
    {"video", R"(<video src="{}/video.mp4" autoplay preload="auto"></video>)", false},
    {"audio", R"(<audio src="{}/audio.mp3" autoplay preload="auto"></audio>)", false},
    {"object", R"(<object data="{}/object.swf"></object><embed src="{}/embed.swf">)", false},
    {"form", R"(<form action="{}/form" method="post"><input name="a" value="b"></form>)", false},
    {"refresh", R"(<meta http-equiv="refresh" content="0;url={}/refresh.html"><p>x</p>)", false},
    {"websocket", R"(<script>new WebSocket("{}/socket".replace("http", "ws"))</script><p>x</p>)", false},
    {"pixel", R"(<img src="{}/pixel.gif" width="1" height="1">)", false},
    {"favicon", R"(<link rel="icon" href="{}/favicon.ico"><link rel="apple-touch-icon" href="{}/touch.png"><p>x</p>)", false},
};
// clang-format on

// The html with every "{}" replaced by the address of the request log.
std::string fill(std::string html, const QString& base) {
    for (size_t at = html.find("{}"); at != std::string::npos; at = html.find("{}", at))
        html.replace(at, 2, base.toStdString());
    return html;
}

class Reader : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        log_ = new RequestLog;
        vault_ = new test::TemporaryDirectory;
        std::string everything;
        for (const auto& channel : channels) {
            const std::string html = fill(channel.html, log_->base());
            write(channel.name, html);
            everything += html;
        }
        write("everything", everything);
        // A red square of the mail's own, as an inline (cid:) picture becomes for the view, in a
        // mail of 3 MB, as large pictures make it: more than a page's address may carry.
        write(
            "inline",
            fill(
                R"(<img src="data:image/png;base64,iVBORw0KGgoAAAANSUhEUgAAACgAAAAoCAIAAAADnC86AAAALElEQVR42u3NsQkAAAjAsP7/tD4huASyp6kXicVisVgsFovFYrFYLBaLxXcWqvU6G92VM/sAAAAASUVORK5CYII=" width="40" height="40"><img src="{}/img.png" width="40" height="40">)",
                log_->base()) +
                "<!--" + std::string(3'000'000, 'x') + "-->");
        write(
            "links",
            R"(<a href="http://127.0.0.1:9/pay" style="display:block;height:200px">shop.example</a>)"
            R"(<a href="http://localhost:9/honest" style="display:block;height:200px">http://localhost:9/honest</a>)");
        ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault_->path().c_str(), 1);
        ::setenv("QUERNSTEAD_CREDENTIALS_FILE", (vault_->path() / "none.json").c_str(), 1);
        QSettings(SettingsKeys::organisation, SettingsKeys::application)
            .setValue(SettingsKeys::didShowWelcome, true);
        engine_ = new QQmlApplicationEngine;
        window_ = test::showMainWindow(*engine_, AppStore::shared(), {1280, 800});
        ASSERT_NE(window_, nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_));
        QSignalSpy scanned(&AppStore::shared(), &AppStore::scanFinished);
        AppStore::shared().reloadArchive();
        ASSERT_TRUE(scanned.wait(20'000));
        opener_ = new Opener;
        for (const char* scheme : {"http", "https"})
            QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), opener_, "open");
    }
    static void TearDownTestSuite() {
        for (const char* scheme : {"http", "https"})
            QDesktopServices::unsetUrlHandler(QString::fromLatin1(scheme));
        delete engine_;
        delete vault_;
        delete log_;
        delete opener_;
    }

    static void write(const std::string& name, const std::string& html) {
        const auto path = vault_->path() / "Robin" / "INBOX" / "2024" / (name + ".eml");
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path)
            << "From: Shop <news@shop.example>\r\nTo: robin@example.org\r\n"
               "Date: Tue, 16 Jan 2024 10:00:00 +0000\r\nSubject: "
            << name << "\r\nMIME-Version: 1.0\r\nContent-Type: text/html; charset=utf-8\r\n\r\n"
            << html << "\r\n";
    }

    static QQuickItem* item(const char* name) { return test::itemNamed(*window_, name); }

    // Selects the message and returns once its page has loaded.
    static void open(const std::string& name) {
        const auto select = [&] {
            AppStore::shared().setSelectedPath("Robin/INBOX/2024/" + name + ".eml");
        };
        ASSERT_TRUE(test::loadPage(*item("mailWebView"), select)) << name;
        // Requests of a finished page still in flight would land now.
        QTest::qWait(300);
    }

    static inline RequestLog* log_ = nullptr;
    static inline test::TemporaryDirectory* vault_ = nullptr;
    static inline QQmlApplicationEngine* engine_ = nullptr;
    static inline QQuickWindow* window_ = nullptr;
    static inline Opener* opener_ = nullptr;
};

TEST_F(Reader, NoChannelReachesTheNetworkWhenAMessageOpens) {
    for (const auto& channel : channels) {
        log_->clear();
        open(channel.name);
        EXPECT_EQ(log_->connections(), 0)
            << channel.name << ": " << log_->paths().join(' ').toStdString();
    }
}

// The choice is written nowhere, so the next launch blocks the pictures again.
TEST_F(Reader, ShowImagesLetsOnlyTheImagesThroughNeverThePixelAndOnlyForThisRun) {
    log_->clear();
    open("everything");
    ASSERT_EQ(log_->connections(), 0);
    const auto vault = test::snapshotFiles(vault_->path());
    const auto settings = test::snapshotFiles(std::getenv("XDG_CONFIG_HOME"));
    ASSERT_GT(AppStore::shared().property("openMessage").toMap()["remoteImages"].toInt(), 0);
    QStringList expected;
    for (const auto& channel : channels)
        if (channel.image)
            expected << QString::fromStdString(fill(channel.html, log_->base()))
                            .section(log_->base(), 1, 1)
                            .section(QRegularExpression("[ )\"]"), 0, 0);
    ASSERT_TRUE(test::loadPage(*item("mailWebView"), [] {
        QTest::keyClick(window_, Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
    }));
    ASSERT_TRUE(QTest::qWaitFor([&] { return log_->paths().size() >= expected.size(); }, 10'000));
    QTest::qWait(300);
    QStringList seen = log_->paths();
    seen.sort();
    seen.removeDuplicates();
    expected.sort();
    EXPECT_EQ(seen, expected);
    EXPECT_FALSE(item("imagesNote")->isVisible());
    EXPECT_EQ(test::snapshotFiles(vault_->path()), vault);
    EXPECT_EQ(test::snapshotFiles(std::getenv("XDG_CONFIG_HOME")), settings);
}

// Pictures shown for the previous message are not shown for the next; the mail's own red square
// (in a mail of 3 MB) is drawn all the same.
TEST_F(Reader, AfterwardsOwnPicturesShowRemoteOnesStayBlockedAndMisleadingLinksAskFirst) {
    log_->clear();
    open("inline");
    const QPoint square = item("mailWebView")->mapToScene(QPointF(42, 38)).toPoint();
    QSignalSpy frames(window_, &QQuickWindow::frameSwapped);
    for (int frame = 0; frame < 50 && window_->grabWindow().pixelColor(square) != Qt::red;
         ++frame) {
        window_->update();
        frames.wait(200);
    }
    EXPECT_EQ(window_->grabWindow().pixelColor(square), QColor(Qt::red));
    EXPECT_EQ(log_->connections(), 0);
    open("links");
    QQuickItem* body = item("mailWebView");
    const QPoint first = body->mapToScene(QPointF(120, 80)).toPoint();
    const QPoint second = body->mapToScene(QPointF(120, 300)).toPoint();
    QObject* dialog = engine_->rootObjects().value(0)->findChild<QObject*>("linkWarningDialog");
    ASSERT_NE(dialog, nullptr);
    opener_->opened.clear();
    QTest::mouseClick(window_, Qt::LeftButton, {}, first);
    ASSERT_TRUE(QTest::qWaitFor([&] { return dialog->property("opened").toBool(); }, 5'000));
    EXPECT_EQ(dialog->property("shownDomain").toString(), QStringLiteral("shop.example"));
    EXPECT_EQ(dialog->property("actualHost").toString(), QStringLiteral("127.0.0.1"));
    QMetaObject::invokeMethod(dialog, "close");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !dialog->property("visible").toBool(); }, 5'000));
    EXPECT_TRUE(opener_->opened.isEmpty());
    QTest::mouseClick(window_, Qt::LeftButton, {}, second);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !opener_->opened.isEmpty(); }, 5'000));
    EXPECT_EQ(opener_->opened.value(0), QUrl("http://localhost:9/honest"));
    EXPECT_FALSE(dialog->property("opened").toBool());
    EXPECT_EQ(log_->connections(), 0);
}

TEST(NavigationPolicy, OnlyDocumentAboutAndDataLoadInTheViewLinksLeaveItAndEmptyMailSaysSo) {
    const std::vector<LinkWarning> warnings = {
        {"shop.example", "shop.example", "pay.example.net", "https://pay.example.net/x?id=1"}};
    const struct {
        const char* name;
        const char* url;
        bool link;
        bool initial;
        bool allow;
        bool open;
        bool warned;
    } rows[] = {
        {"the document's own load", "data:text/html,hi", false, true, true, false, false},
        {"a data page", "data:text/html,x", false, false, true, false, false},
        {"about:blank", "about:blank", false, false, true, false, false},
        {"a file", "file:///etc/passwd", false, false, false, false, false},
        {"a web page by refresh", "https://tracker.example/x", false, false, false, false, false},
        {"a warned link by href", "https://pay.example.net/x?id=1", true, false, false, true, true},
        {"a warned link by host", "https://PAY.example.net/other", true, false, false, true, true},
        {"an honest link", "https://shop.example/sale", true, false, false, true, false},
        {"a mail link", "mailto:robin@example.org", true, false, false, true, false},
        {"a file link", "file:///home/robin/.ssh/id_rsa", true, false, false, false, false},
    };
    for (const auto& row : rows) {
        const auto decision =
            NavigationPolicy::decide(QUrl(row.url), row.link, row.initial, warnings);
        EXPECT_EQ(decision.allow, row.allow) << row.name;
        EXPECT_EQ(decision.openOutside, row.open) << row.name;
        EXPECT_EQ(decision.warning.has_value(), row.warned) << row.name;
    }
    bool isHtml = true;
    EXPECT_NE(ReaderContent::bodyDocument({}, isHtml).find("(This message has no text.)"),
              std::string::npos);
    EXPECT_FALSE(isHtml);
}

} // namespace
} // namespace qs

#include "ReaderTests.moc"
