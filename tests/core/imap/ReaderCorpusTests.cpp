// Every message of the real-world corpus, sent as FETCH literals in uneven chunks, must come
// out of the reader byte for byte: real mail holds bare LFs, long lines, `{n}`-like text and
// 8-bit bytes that framing must pass over unexamined.

#include "imap/IMAPResponseReader.h"

#include "support/Corpus.h"

#include <gtest/gtest.h>
#include <string>

namespace qs {
namespace {

TEST(ReaderCorpus, EveryMessageArrivesWholeAsALiteral) {
    std::vector<test::CorpusMessage> messages = test::corpusMessages();
    ASSERT_GT(messages.size(), 100u);

    std::string stream;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const std::string& bytes = messages[i].bytes;
        stream += "* " + std::to_string(i + 1) + " FETCH (UID " + std::to_string(i + 1) +
                  " BODY[] {" + std::to_string(bytes.size()) + "}\r\n" + bytes + ")\r\n";
    }
    stream += "M0001 OK done\r\n";

    IMAPResponseReader reader;
    std::size_t received = 0;
    unsigned state = 7;
    for (std::size_t at = 0; at < stream.size();) {
        state = state * 1103515245u + 12345u;
        std::size_t length = 1 + (state >> 8) % 70000;
        reader.append(std::string_view(stream).substr(at, length));
        at += length;
        while (auto response = reader.next()) {
            auto* untagged = response->untagged();
            if (!untagged) {
                ASSERT_NE(response->tagged(), nullptr);
                continue;
            }
            ASSERT_EQ(untagged->values.size(), 3u);
            auto items = untagged->values[2].items();
            ASSERT_EQ(items.size(), 4u);
            ASSERT_LT(received, messages.size());
            std::optional<std::string> body = items[3].takeData();
            EXPECT_TRUE(body && *body == messages[received].bytes) << messages[received].name;
            ++received;
        }
    }
    EXPECT_EQ(received, messages.size());
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
}

} // namespace
} // namespace qs
