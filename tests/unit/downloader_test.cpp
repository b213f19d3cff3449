#include "downloader/downloader.h"
#include "support/crypto.h"
#include "support/web_server.h"
#include "unit_test.h"

#include <filesystem>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Strings = std::vector<std::string>;

// Plays a script on loopback: the n-th connection gets the n-th reply. Without one it refuses them all.
class ScriptedServer {
public:
    explicit ScriptedServer(const Strings& script) : port(!script.empty()), thread([=] { play(script); }) {}
    ~ScriptedServer() { stop(); }

    /// \return the requests that came.
    const Strings& stop() {
        shutdown(port.fd, SHUT_RDWR);
        if (thread.joinable()) thread.join();
        return requests;
    }

    const LoopbackPort port;

private:
    void play(const Strings& script) {
        for (const std::string& reply : script) {
            char request[4096];
            const int fd = accept(port.fd, nullptr, nullptr);
            const ssize_t got = recv(fd, request, sizeof request, 0);
            if (got > 0) requests.emplace_back(request, static_cast<size_t>(got));
            send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
            close(fd);
        }
    }

    Strings requests;
    std::thread thread;
};

const std::string kBody = "0123456789",
                  kDigest = "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882";
const std::string kHead = "HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n", kWhole = kHead + kBody,
                  kCut = kHead + "01234";
const std::string kRest = "HTTP/1.0 206 Partial Content\r\nContent-Range: bytes 5-9/10\r\n\r\n56789";
const std::string kGone = "HTTP/1.0 404 Not Found\r\nContent-Length: 4\r\n\r\ngone";

// Result, file, reports of progress as "attempts:percent ", and for each request its offset, or "-".
using Outcome = std::tuple<int32_t, std::string, std::string, std::string>;

struct Download : testing::Test {
    Download() { setenv("no_proxy", "*", 1); }

    // Downloads from a server with this script, over an older file; `first`: what becomes of the first
    // attempt.
    Outcome fetch(const Strings& script, uint32_t limit, const std::string& hash = "", int first = 0) {
        if (first != 0) interposed.outcomes = {static_cast<CURLcode>(first)};
        ScriptedServer server(script);
        std::string reports, offsets;
        url = server.port.url() + "/file";
        writeWholeFile(path, "older and longer");
        downloader.setup(url, path, limit, hash);
        downloader.progress = [&](int attempts, int percent) {
            reports += std::to_string(attempts) + ":" + std::to_string(percent) + " ";
        };
        const int32_t result = downloader.run(4, 60);
        std::smatch range;
        for (const std::string& request : server.stop())
            offsets += std::regex_search(request, range, std::regex("\r\nRange: bytes=([0-9]+)-\r"))
                           ? range.str(1)
                           : "-";
        EXPECT_EQ(downloader.received, readWholeFile(path).size());
        EXPECT_EQ(interposed.handlesMade, interposed.handlesReleased);
        EXPECT_EQ(downloader.file, nullptr);
        return Outcome(result, readWholeFile(path), reports, offsets);
    }

    std::string attempt(int number) const {
        return "DOWNLD: Downloading " + url + " to " + path + ", attempt " + std::to_string(number) + "...\n";
    }

    const Interposition calls;
    const ScratchDir dir;
    const std::string path = dir.path + "/file";
    const LogCapture log{LOG_LVL_INFO | LOG_LVL_WARNING | LOG_LVL_ERROR};
    std::string url;
    Downloader downloader{false, false};
};

}  // namespace

TEST_F(Download, EndsAsTheServerAndTheLimitHaveIt) {
    EXPECT_EQ(fetch({kWhole}, 10), Outcome(0, kBody, "0:100 ", "-"));
    EXPECT_EQ(log.messages(), attempt(0));
    EXPECT_EQ(fetch({kWhole}, 9), Outcome(-CURLE_WRITE_ERROR, "012345678", "0:100 ", "-"));
    EXPECT_EQ(fetch({kWhole}, 12), Outcome(0, kBody, "0:83 ", "-"));
    EXPECT_EQ(fetch({kWhole}, 0), Outcome(0, kBody, "0:0 ", "-"));
    EXPECT_EQ(fetch({"HTTP/1.0 200 OK\r\n\r\n" + kBody}, 20), Outcome(0, kBody, "0:50 ", "-"));
    EXPECT_EQ(fetch({"HTTP/1.0 200 OK\r\n\r\n"}, 10), Outcome(0, "", "", "-"));
    EXPECT_EQ(fetch({kCut, kRest}, 10), Outcome(-CURLE_PARTIAL_FILE, "01234", "0:50 ", "-"));
    EXPECT_EQ(fetch({"", kWhole}, 10), Outcome(-CURLE_GOT_NOTHING, "", "", "-"));
    EXPECT_EQ(fetch({kGone}, 10), Outcome(0, "gone", "0:40 ", "-"));
    EXPECT_EQ(fetch({"HTTP/1.0 302 Found\r\nLocation: /x\r\n\r\naway", kWhole}, 10),
              Outcome(0, "away", "0:40 ", "-"));
    EXPECT_TRUE(interposed.waits.empty());
}

TEST_F(Download, GoesOnWhereTheLastAttemptStopped) {
    const int cut = CURLE_OPERATION_TIMEDOUT;
    EXPECT_EQ(fetch({kCut, kRest}, 10, kDigest, cut), Outcome(0, kBody, "0:50 1:100 ", "-5"));
    EXPECT_EQ(interposed.handlesMade, 2);
    EXPECT_EQ(log.messages(), attempt(0) +
                                  "DOWNLD: CURL download failed after 5 bytes: (28) Timeout was reached\n"
                                  "DOWNLD: Waiting for 60 secs for network to recover...\n" +
                                  attempt(1));
    EXPECT_EQ(fetch({kCut, kWhole}, 10, "", cut), Outcome(-CURLE_RANGE_ERROR, "01234", "0:50 ", "-5"));
    EXPECT_EQ(fetch({kCut, kRest}, 9, "", cut),
              Outcome(-CURLE_WRITE_ERROR, "012345678", "0:55 1:100 ", "-5"));
    EXPECT_EQ(fetch({kCut, kRest}, 5, "", cut), Outcome(-CURLE_WRITE_ERROR, "01234", "0:100 1:100 ", "-5"));
    EXPECT_EQ(fetch({"", kWhole}, 10, "", cut), Outcome(0, kBody, "1:100 ", "--"));
}

TEST_F(Download, IsTriedAgainAfterFailuresOfTheNetworkOnly) {
    EXPECT_EQ(fetch({}, 10), Outcome(EAGAIN, "", "", ""));
    EXPECT_EQ(interposed.waits, std::vector<unsigned int>(4, 60));
    EXPECT_EQ(downloader.attempts, 5U);
    for (int code = 1; code < CURL_LAST; ++code) {
        const bool retried = code == 6 || code == 7 || code == 28;
        EXPECT_EQ(std::get<0>(fetch({kWhole, kWhole}, 10, "", code)), retried ? 0 : -code);
        EXPECT_EQ(downloader.attempts, retried ? 2U : 1U);
    }
}

TEST_F(Download, WaitsOnlyAfterAQuickFailure) {
    for (time_t seconds : {0, 19, 20, 180}) {
        interposed.waits.clear();
        interposed.now = {1000, 999999999};  // the fractions of a second do not count
        interposed.transferSeconds = seconds;
        fetch({}, 10);
        EXPECT_EQ(interposed.waits.size(), seconds < 20 ? 4U : 0U);
    }
}

TEST_F(Download, ReportsThePercentOfLargeFilesToo) {
    for (uint32_t limit : {85899346U, 0U}) {
        const ScriptedServer server(
            {"HTTP/1.0 206 Some\r\nContent-Range: bytes 42949673-/85899346\r\n\r\n56789"});
        downloader.setup(server.port.url(), path, limit, "");
        downloader.received = 42949673;  // times 100 is more than 32 bits hold
        downloader.progress = [=](int, int percent) { EXPECT_EQ(percent, limit == 0 ? 0 : 50); };
        EXPECT_EQ(downloader.run(0, 0), 0);
        EXPECT_EQ(downloader.received, 42949678U);
    }
}

TEST_F(Download, SetsTheseNumbersAndNoOthers) {
    const std::pair<int, long> redirects = {CURLOPT_MAXREDIRS, 3}, verbose = {CURLOPT_VERBOSE, 1};
    const std::pair<int, long> time = {CURLOPT_LOW_SPEED_TIME, 180}, limit = {CURLOPT_LOW_SPEED_LIMIT, 100};
    fetch({kWhole}, 10);
    EXPECT_EQ(interposed.numbers, (std::vector<std::pair<int, long>>{redirects, time, limit}));
    interposed.numbers.clear();
    downloader.verbose = true;
    fetch({kCut, kRest}, 10, "", CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(
        interposed.numbers,
        (std::vector<std::pair<int, long>>{
            redirects, time, limit, verbose, redirects, time, limit, verbose, {CURLOPT_RESUME_FROM, 5}}));
}

TEST_F(Download, AHashOtherThanTheFilesFailsIt) {
    const std::string upper = "84D89877" + kDigest.substr(8);
    EXPECT_EQ(fetch({kWhole}, 10, upper), Outcome(EBADMSG, kBody, "0:100 ", "-"));
    EXPECT_EQ(log.messages(), attempt(0) + "DOWNLD: Hash verification failed\n");
    EXPECT_EQ(fetch({kGone}, 10, kDigest), Outcome(EBADMSG, "gone", "0:40 ", "-"));
    const std::string longPath = path + std::string(250, 'x');  // more than a formatted command holds
    writeWholeFile(longPath, kBody);
    EXPECT_EQ(verifySha256(longPath, kDigest), 0);
    EXPECT_EQ(verifySha256(longPath, kDigest + "0"), 1);
    interposed.shellLine = "printf 84d8; exit 0";
    EXPECT_EQ(verifySha256(longPath, "84d8"), 1);
    interposed.shellLine = "printf %064d 0; exit 1";
    EXPECT_EQ(verifySha256(longPath, std::string(64, '0')), 1);
}

TEST_F(Download, WhatFailsBesideTheTransferIsNamed) {
    EXPECT_EQ(downloader.run(4, 60), EINVAL);
    EXPECT_EQ(log.messages(), "");
    const LogCapture errors;
    const ScriptedServer server({kWhole});
    downloader.setup(server.port.url(), path + "/x", 10, "");
    EXPECT_EQ(downloader.run(4, 60), ENOENT);
    EXPECT_EQ(downloader.attempts, 0U);
    downloader.setup(server.port.url(), "/dev/full", 10, "");
    EXPECT_EQ(downloader.run(4, 60), ENOSPC);
    EXPECT_EQ(errors.messages(), "DOWNLD: Unable to open file " + path + "/x: " + std::to_string(ENOENT) +
                                     "\nDOWNLD: Failed to close output file: " + std::to_string(ENOSPC) +
                                     "\n");
}

TEST_F(Download, ADryRunTransfersNothing) {
    downloader.dryRun = true;
    downloader.setup(url = "http://127.0.0.1/", path, 10, kDigest);
    EXPECT_EQ(downloader.run(4, 60), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(log.messages(), attempt(0));
    EXPECT_EQ(interposed.handlesMade, 0);
}
