#include "HostStream.h"

#include "RemoteFixture.h"

namespace {

class HostStreamTest : public RemoteFixture {
protected:
    /// What is taken of "kind" and "number", until there are so many.
    bool read(bool follows, std::size_t most = 1000) {
        ApiClient client(m_host.path());
        return HostStream(client, Screen{m_out, m_err})
            .read("kinds=exit", 5, follows, [&](const JsonView& record, const std::string& json) {
                m_taken += record.text("kind") + record.text("number") + " ";
                m_last = json;
                return ++m_count < most;
            });
    }
    static constexpr const char* s_error = R"({"error":{"code":"refused","text":"it does not record"}})";

    std::string m_taken;
    std::string m_last;
    std::size_t m_count = 0;
};

}  // namespace

TEST_F(HostStreamTest, GivesTheRecordsAndNotWhatIsAboutTheStream) {
    m_host.answer("GET /stream?kinds=exit&lines=1&follow=0&last=5",
                  "{\"kind\":\"hello\"}\n{\"kind\":\"exit\",\"number\":3}\n{\"kind\":\"heartbeat\"}\n"
                  "{\"kind\":\"gap\"}\n");
    EXPECT_TRUE(read(false));
    EXPECT_EQ("exit3 gap ", m_taken);
    EXPECT_EQ("{\"kind\":\"gap\"}", m_last);
}

TEST_F(HostStreamTest, EndsWhereNoMoreIsWanted) {
    m_host.answer("GET /stream?kinds=exit&lines=1&last=5",
                  "{\"kind\":\"exit\",\"number\":3}\n{\"kind\":\"exit\",\"number\":4}\n");
    EXPECT_TRUE(read(true, 1));
    EXPECT_EQ("exit3 ", m_taken);
}

TEST_F(HostStreamTest, SaysThatAHostDoesNotRecord) {
    EXPECT_FALSE(read(true)) << "a former version has no such resource";
    m_host.answer("GET /stream?kinds=exit&lines=1&last=5", s_error, 409);
    EXPECT_FALSE(read(true));
    EXPECT_EQ("", m_taken);
}

TEST_F(HostStreamTest, OtherRefusalsAreErrors) {
    m_host.answer("GET /stream?kinds=exit&lines=1&follow=0&last=5",
                  R"({"error":{"code":"not-allowed","text":"not you"}})", 403);
    EXPECT_EQ(std::pair(EExit::NotAllowed, std::string("not you")), errorOf([&] { read(false); }));
}

TEST_F(HostStreamTest, GoesOnAtTheLastPlaceWhenTheConnectionEnds) {
    m_host.answer("GET /stream?kinds=exit&lines=1&last=5",
                  "{\"kind\":\"exit\",\"number\":3,\"cursor\":\"i1:both:4\"}\n");
    m_host.answer("GET /stream?kinds=exit&lines=1&from=i1%3Aboth%3A4",
                  "{\"kind\":\"hello\",\"restarted\":true}\n{\"kind\":\"exit\",\"number\":1}\n");
    EXPECT_TRUE(read(true, 2));
    EXPECT_EQ("exit3 exit1 ", m_taken);
    const std::string host = "mfctl: the host at " + m_host.path();
    EXPECT_EQ(host + " has ended the stream; waiting for it\n" + host + " answers again\n" + host +
                  " was started anew\n",
              err());
}

TEST_F(HostStreamTest, HostThatWasNeverThereIsAnError) {
    ApiClient client(m_directory.path("none.sock"));
    const auto error = errorOf([&] {
        HostStream(client, Screen{m_out, m_err}).read("kinds=exit", 5, true, [](const auto&, const auto&) {
            return true;
        });
    });
    EXPECT_EQ(EExit::NoHost, error.first);
}
