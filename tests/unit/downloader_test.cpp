#include "downloader/downloader.h"
#include "support/crypto.h"
#include "support/web_server.h"
#include "unit_test.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// A simple server on loopback: the n-th connection gets the n-th reply. Without one it refuses them all.
class ScriptedServer {
public:
    explicit ScriptedServer(const Strings& replies)
        : port(!replies.empty()), thread_([=] { answer(replies); }) {}
    ~ScriptedServer() { stop(); }

    /// \return the requests that came.
    const Strings& stop() {
        shutdown(port.fd, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        return requests_;
    }

    const LoopbackPort port;

private:
    void answer(const Strings& replies) {
        for (const std::string& reply : replies) {
            char request[4096];
            const int fd = accept(port.fd, nullptr, nullptr);
            const ssize_t got = recv(fd, request, sizeof request, 0);
            if (got > 0) requests_.emplace_back(request, static_cast<size_t>(got));
            send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
            close(fd);
        }
    }

    Strings requests_;
    std::thread thread_;
};

const std::string kBody = "0123456789",
                  kDigest = "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882";
const std::string kHead = "HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n", kWhole = kHead + kBody,
                  kCut = kHead + "01234";
const std::string kRest = "HTTP/1.0 206 Partial Content\r\nContent-Range: bytes 5-9/10\r\n\r\n56789";
const std::string kGone = "HTTP/1.0 404 Not Found\r\nContent-Length: 4\r\n\r\ngone";
const std::string kWithoutLength = "HTTP/1.0 200 OK\r\n\r\n";
const std::string kRedirect = "HTTP/1.0 302 Found\r\nLocation: /x\r\n\r\naway";

using Reports = std::vector<std::pair<int, int>>;  // attempts and percent
using Offsets = std::vector<int>;                  // for each request, where its range begins
constexpr int kNoRange = -1;

struct Download : testing::Test {
    Download() { setenv("no_proxy", "*", 1); }

    // Downloads from a server with these replies, over an older file. The first attempt ends with the code `first`,
    // if that is one of an error, whatever it transferred.
    int32_t fetch(const Strings& replies, uint32_t limit, CURLcode first = CURLE_OK,
                  const std::string& hash = "") {
        ScriptedServer server(replies);
        if (first != CURLE_OK) interposed.outcomes = {first};
        url = server.port.url() + "/file";
        reports.clear();
        offsets.clear();
        writeWholeFile(path, "older and longer");
        downloader.setup(url, path, limit, hash);
        downloader.progress = [&](int attempts, int percent) { reports.emplace_back(attempts, percent); };
        const int32_t result = downloader.run(4, 60);
        std::smatch range;
        for (const std::string& request : server.stop()) {
            const bool ranged = std::regex_search(request, range, std::regex("\r\nRange: bytes=([0-9]+)-\r"));
            offsets.push_back(ranged ? std::stoi(range.str(1)) : kNoRange);
        }
        EXPECT_EQ(downloader.received, readWholeFile(path).size());
        EXPECT_EQ(interposed.handlesMade, interposed.handlesReleased);
        EXPECT_EQ(downloader.file, nullptr);
        return result;
    }

    std::string attempt(int number) const {
        return "DOWNLD: Downloading " + url + " to " + path + ", attempt " + std::to_string(number) + "...\n";
    }

    const Interposition calls;
    const ScratchDir dir;
    const std::string path = dir.path + "/file";
    const LogCapture log{LOG_LVL_INFO | LOG_LVL_WARNING | LOG_LVL_ERROR};
    std::string url;
    Reports reports;
    Offsets offsets;
    Downloader downloader{false, false};
};

struct TransferRow {
    const char* name;
    Strings replies;
    uint32_t limit;
    int32_t result;
    std::string file;
    Reports reports;
    int secondOffset = 5;  // bytes from which a second transfer goes on
};

// A limit on the size of this process's files: what is beyond it is refused as on a full disk, with another number.
class Room {
public:
    explicit Room(size_t bytes) : action_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limited = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~Room() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, action_);
    }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

private:
    sighandler_t action_;
    rlimit before_ = {};
};

struct RoomRow {
    const char* name;
    size_t size, room;  // bytes
    int32_t result;
};

std::string bodyOf(size_t size) {
    std::string body;
    for (uint32_t i = 0; body.size() < size; ++i)
        body += std::to_string(i) + " ";
    return body.substr(0, size);
}

std::string replyFrom(size_t start, const std::string& body) {
    const std::string end = "-" + std::to_string(body.size() - 1) + "/" + std::to_string(body.size());
    const std::string range =
        "HTTP/1.0 206 Some\r\nContent-Range: bytes " + std::to_string(start) + end + "\r\n\r\n";
    return (start == 0 ? kWithoutLength : range) + body.substr(start);
}

}  // namespace

TEST_F(Download, EndsAsTheServerAndTheLimitHaveIt) {
    const TransferRow rows[] = {
        {"limit of its size", {kWhole}, 10, 0, kBody, {{0, 100}}},
        {"lower limit", {kWhole}, 9, -CURLE_WRITE_ERROR, "012345678", {{0, 100}}},
        {"higher limit", {kWhole}, 12, 0, kBody, {{0, 83}}},
        {"no limit", {kWhole}, 0, 0, kBody, {{0, 0}}},
        {"no length in the reply", {kWithoutLength + kBody}, 20, 0, kBody, {{0, 50}}},
        {"empty file", {kWithoutLength}, 10, 0, "", {}},
        {"cut off", {kCut, kRest}, 10, -CURLE_PARTIAL_FILE, "01234", {{0, 50}}},
        {"no reply", {"", kWhole}, 10, -CURLE_GOT_NOTHING, "", {}},
        {"page of an error", {kGone}, 10, 0, "gone", {{0, 40}}},
        {"redirection", {kRedirect, kWhole}, 10, 0, "away", {{0, 40}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(fetch(row.replies, row.limit), row.result);
        EXPECT_EQ(readWholeFile(path), row.file);
        EXPECT_EQ(reports, row.reports);
        EXPECT_EQ(offsets, Offsets{kNoRange});
    }
    EXPECT_TRUE(interposed.waits.empty());
}

TEST_F(Download, ContinuesWhereTheLastAttemptStopped) {
    EXPECT_EQ(fetch({kCut, kRest}, 10, CURLE_OPERATION_TIMEDOUT, kDigest), 0);
    EXPECT_EQ(interposed.handlesMade, 2);
    EXPECT_EQ(log.messages(), attempt(0) +
                                  "DOWNLD: CURL download failed after 5 bytes: (28) Timeout was reached\n"
                                  "DOWNLD: Waiting for 60 secs for network to recover...\n" +
                                  attempt(1));
    const TransferRow rows[] = {
        {"the rest", {kCut, kRest}, 10, 0, kBody, {{0, 50}, {1, 100}}},
        {"not a range", {kCut, kWhole}, 10, -CURLE_RANGE_ERROR, "01234", {{0, 50}}},
        {"limit below", {kCut, kRest}, 9, -CURLE_WRITE_ERROR, "012345678", {{0, 55}, {1, 100}}},
        {"limit reached", {kCut, kRest}, 5, -CURLE_WRITE_ERROR, "01234", {{0, 100}, {1, 100}}},
        {"nothing came before", {"", kWhole}, 10, 0, kBody, {{1, 100}}, kNoRange},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(fetch(row.replies, row.limit, CURLE_OPERATION_TIMEDOUT), row.result);
        EXPECT_EQ(readWholeFile(path), row.file);
        EXPECT_EQ(reports, row.reports);
        EXPECT_EQ(offsets, (Offsets{kNoRange, row.secondOffset}));
    }
}

TEST_F(Download, CountsWhatAFullDiskStores) {
    constexpr size_t kBlock = 4096;
    const RoomRow rows[] = {
        {"early", 400000, kBlock, -CURLE_WRITE_ERROR},
        {"late", 400000, 80 * kBlock, -CURLE_WRITE_ERROR},
        {"in the last piece", 170000, 40 * kBlock, -CURLE_WRITE_ERROR},
        {"far into a large file", 5000000, 1000 * kBlock, -CURLE_WRITE_ERROR},
        {"small file", 5000, 0, -CURLE_WRITE_ERROR},
        // The stream holds what is missing: the transfer succeeds, and the close fails.
        {"in the last block", 5000, kBlock, EFBIG},
        {"less than a block", 3000, 0, EFBIG},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string body = bodyOf(row.size);
        const LogCapture messages(LOG_LVL_WARNING | LOG_LVL_ERROR);
        {
            const ScriptedServer server({replyFrom(0, body)});
            const Room room(row.room);
            downloader.setup(server.port.url(), path, 0, "");
            EXPECT_EQ(downloader.run(0, 0), row.result);
        }
        const size_t stored = readWholeFile(path).size();
        EXPECT_EQ(stored, row.room);
        EXPECT_GE(downloader.received, stored);
        EXPECT_LE(downloader.received, stored + kBlock);
        const std::string received = std::to_string(downloader.received), error = std::to_string(EFBIG);
        EXPECT_EQ(messages.messages(),
                  row.result < 0 ? "DOWNLD: CURL download failed after " + received +
                                       " bytes: (23) Failed writing received data to disk/application\n"
                                 : "DOWNLD: Failed to close output file: " + error + "\n");
    }
}

TEST_F(Download, IsResumedWhereAFullDiskEndedAStalledTransfer) {
    for (const RoomRow& row :
         {RoomRow{"some blocks", 170000, 163840, EAGAIN}, {"nothing", 3000, 0, EAGAIN}}) {
        SCOPED_TRACE(row.name);
        const std::string body = bodyOf(row.size);
        // The stalled transfer ends within the block that has no room.
        const ScriptedServer server(
            {replyFrom(0, body.substr(0, row.room + 2000)), replyFrom(row.room, body)});
        interposed.outcomes = {CURLE_OPERATION_TIMEDOUT};
        downloader.setup(server.port.url(), path, 0, "");
        {
            const Room room(row.room);
            EXPECT_EQ(downloader.run(0, 0), row.result);
        }
        EXPECT_EQ(downloader.received, row.room);
        EXPECT_EQ(downloader.run(0, 0), 0);
        EXPECT_TRUE(readWholeFile(path) == body);
    }
}

TEST_F(Download, IsTriedAgainAfterFailuresOfTheNetworkOnly) {
    for (int code = 1; code < CURL_LAST; ++code) {
        SCOPED_TRACE(code);
        const bool retried = code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_CONNECT ||
                             code == CURLE_OPERATION_TIMEDOUT;
        EXPECT_EQ(fetch({kWhole, kWhole}, 10, static_cast<CURLcode>(code)), retried ? 0 : -code);
        EXPECT_EQ(downloader.attempts, retried ? 2U : 1U);
    }
}

TEST_F(Download, IsGivenUpAfterFiveAttemptsAndWaitsAfterQuickOnes) {
    const std::vector<unsigned int> minutes(4, 60);
    for (const time_t seconds : {0, 19, 20, 180}) {
        SCOPED_TRACE(seconds);
        interposed.waits.clear();
        interposed.now = {1000, 999999999};  // the fractions of a second do not count
        interposed.transferSeconds = seconds;
        EXPECT_EQ(fetch({}, 10), EAGAIN);
        EXPECT_EQ(downloader.attempts, 5U);
        EXPECT_TRUE(reports.empty());
        EXPECT_EQ(interposed.waits, seconds < 20 ? minutes : std::vector<unsigned int>());
    }
}

TEST_F(Download, ReportsThePercentOfLargeFilesToo) {
    const ScriptedServer server(
        {"HTTP/1.0 206 Some\r\nContent-Range: bytes 42949673-/85899346\r\n\r\n56789"});
    downloader.setup(server.port.url(), path, 85899346, "");
    downloader.received = 42949673;  // times 100 is more than 32 bits hold
    downloader.progress = [](int, int percent) { EXPECT_EQ(percent, 50); };
    EXPECT_EQ(downloader.run(0, 0), 0);
    EXPECT_EQ(downloader.received, 42949678U);
}

TEST_F(Download, SetsTheseNumbersAndNoOthers) {
    fetch({kWhole}, 10);
    const std::vector<std::pair<int, long>> expected = {
        {CURLOPT_MAXREDIRS, 3}, {CURLOPT_LOW_SPEED_TIME, 180}, {CURLOPT_LOW_SPEED_LIMIT, 100}};
    EXPECT_EQ(interposed.numbers, expected);
}

TEST_F(Download, AHashOtherThanTheFilesFailsIt) {
    const LogCapture error;
    EXPECT_EQ(fetch({kWhole}, 10, CURLE_OK, "84D89877" + kDigest.substr(8)), EBADMSG);
    EXPECT_EQ(readWholeFile(path), kBody);
    EXPECT_EQ(error.messages(), "DOWNLD: Hash verification failed\n");
}

TEST_F(Download, ADigestIsWhatTheCommandPrintsAndItsSuccess) {
    const std::string longPath = path + std::string(250, 'x');  // more than a formatted command holds
    writeWholeFile(longPath, kBody);
    EXPECT_EQ(verifySha256(longPath, kDigest), 0);
    EXPECT_EQ(verifySha256(longPath, kDigest + "0"), 1);
    interposed.shellLine = "printf 84d8; exit 0";
    EXPECT_EQ(verifySha256(longPath, "84d8"), 1);
    interposed.shellLine = "printf %064d 0; exit 1";
    EXPECT_EQ(verifySha256(longPath, std::string(64, '0')), 1);
}

TEST_F(Download, WhatFailsOutsideTheTransferIsNamed) {
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
