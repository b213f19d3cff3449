#include "support/crypto.h"
#include "transfer/file_decryption.h"
#include "unit_test.h"

namespace {

struct FileDecryption : testing::Test {
    int decrypt(const std::string& bytes, const std::string& fileKey = sampleFileKey()) {
        writeWholeFile(path, bytes);
        const uint8_t* key = reinterpret_cast<const uint8_t*>(fileKey.data());
        return decryptFile(path.c_str(), key, key + 32);
    }

    const ScratchDir dir;
    const std::string path = dir.path + "/file";
    const LogCapture log;
};

std::string plainText(size_t size) {
    std::string text;
    while (text.size() < size)
        text += static_cast<char>(text.size() * 31 + text.size() / 256);
    return text;
}

}  // namespace

TEST_F(FileDecryption, LeavesThePlainTextInPlace) {
    for (size_t size : {0U, 1U, 15U, 16U, 17U, 16367U, 16368U, 16383U, 16384U, 16385U, 32752U, 32768U}) {
        SCOPED_TRACE(size);
        EXPECT_EQ(decrypt(encrypted(plainText(size), sampleFileKey())), 0);
        EXPECT_TRUE(readWholeFile(path) == plainText(size));
    }
    EXPECT_EQ(log.messages(), "");
}

TEST_F(FileDecryption, AFailureInTheCipherLeavesTheLengthAndSaysSo) {
    const std::string good = encrypted(plainText(40), sampleFileKey()), otherKey(48, 'x');
    const struct {
        const char* name;
        std::string bytes, key;
    } rows[] = {
        {"less than a block", "x", sampleFileKey()},
        {"no whole blocks", good.substr(0, 47), sampleFileKey()},
        {"without the last block", good.substr(0, 32), sampleFileKey()},
        {"a byte too many", good + "x", sampleFileKey()},
        {"another key", good, otherKey},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LogCapture errors;
        testing::internal::CaptureStderr();
        EXPECT_EQ(decrypt(row.bytes, row.key), -1);
        EXPECT_NE(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(readWholeFile(path).size(), row.bytes.size());
        EXPECT_EQ(errors.messages(), "ROVU: SSL decryption failed:\n");
    }
}

TEST_F(FileDecryption, AFileThatCannotBeMappedIsNamed) {
    EXPECT_EQ(decrypt(""), EINVAL);
    EXPECT_EQ(decryptFile((path + "2").c_str(), nullptr, nullptr), ENOENT);
    EXPECT_EQ(log.messages(), "ROVU: Failed to mmap file " + path + " for decryption: " +
                                  std::to_string(EINVAL) + "\nROVU: Failed to open file " + path +
                                  "2 for decryption: " + std::to_string(ENOENT) + "\n");
}
