#include "spec_signature.h"
#include "support/crypto.h"
#include "unit_test.h"

namespace {

const char kKeyOf1024Bits[] =
    "-----BEGIN PUBLIC KEY-----\nMIGfMA0GCSqGSIb3DQEBAQUAA4GNADCBiQKBgQCcGAiLZao3ogUUe9vES6RN7hdB\n"
    "6gTS5ZSkN/cvpQio5Mqv3IkW0sgaYSl55SkAY9BiZTU+09apJOGx+e2FzQ9y7p1s\nM8mzvaychuSbgrh3ZOx/94+Afs12"
    "ENECL6WejyEcPqYO6D1cAAdDAhZN8+D8XeMD\nw74FutvxHxTrMVtu3QIDAQAB\n-----END PUBLIC KEY-----\n";

std::string signatureOf(const std::string& text) {
    return signedText(text).substr(text.size() + 2);
}

int verify(const std::string& key, const std::string& text, const std::string& signature) {
    const ScratchDir dir;
    writeWholeFile(dir.path + "/key", key);
    const std::string file = text + "--" + signature + "=";  // nothing behind either piece may count
    const char* signatureText = file.data() + text.size() + 2;
    return verifySpecSignature((dir.path + "/key").c_str(), file.data(), text.size(), signatureText,
                               signature.size());
}

}  // namespace

TEST(SpecSignature, StandsBehindTheLastTwoHyphensIfTheyAreTwo) {
    const auto markerOf = [](const std::string& file) {
        const std::string memory = "-" + file + "-";  // nothing around it may count
        const char* marker = findSignatureMarker(memory.data() + 1, file.size());
        return marker == nullptr ? "none" : std::to_string(marker - memory.data() - 1);
    };
    expectRows(
        "text--c2ln => 4 | text\n--c2ln => 5 | a-b--c--d--c2ln => 9 | text---c2ln => 5 | text-- => 4 | "
        "--c2ln => 0 | -- => 0 | text -- end\n => 5 | a\0--s => 2 |  => none | - => none | -text => none | "
        "text => none | text- => none | a--b 'http://x-y' => none | a--b- => none | --x-y => none"s,
        markerOf);
}

TEST(SpecSignature, IsGoodForItsTextAndItsKeyOnly) {
    const LogCapture log;
    const std::string key = publicKeyText(), text = "{ -- a spec\n}\n", signature = signatureOf(text);
    EXPECT_EQ(verify(key, text, signature), 0);
    EXPECT_EQ(verify("a key:\n" + key, text, signature), 0);
    EXPECT_EQ(verify(key, "", signatureOf("")), 0);
    EXPECT_EQ(verify(key, "{ -- a spec\n]\n", signature), EBADMSG);
    EXPECT_EQ(verify(key, "{ -- a spec\n}", signature), EBADMSG);
    EXPECT_EQ(verify(key, text, signatureOf("{}")), EBADMSG);
    EXPECT_EQ(verify(kKeyOf1024Bits, text, signature), EBADMSG);
    std::string other = key;
    other[100] = other[100] == 'A' ? 'B' : 'A';  // within the modulus
    EXPECT_EQ(verify(other, text, signature), EBADMSG);
    EXPECT_EQ(verify(std::regex_replace(key, std::regex("PUBLIC"), "RSA PUBLIC"), text, signature), ENOMEM);
    EXPECT_EQ(verify("no PEM", text, signature), ENOMEM);
    EXPECT_EQ(verify("", text, signature), ENOMEM);
    EXPECT_EQ(log.messages(), "");
}

TEST(SpecSignature, DecodesTo256Bytes) {
    const auto verifyBytes = [](const std::string& base64) {
        return verify(publicKeyText(), "text", base64);
    };
    EXPECT_EQ(verifyBytes(std::string(340, 'A') + "AA=="), EBADMSG);
    for (const std::string& base64 :
         {std::string(340, 'A'), std::string(340, 'A') + "AAA=",  // 255 and 257 bytes
          std::string(360, 'A') + "AAA=", std::string(400, 'A'),  // 272 and 300 bytes
          std::string(344, '!'), std::string(), std::string(340, 'A') + "AA="})
        EXPECT_EQ(verifyBytes(base64), EILSEQ) << base64;
}

TEST(SpecSignature, AMissingKeyFileIsNamed) {
    const LogCapture log;
    EXPECT_EQ(verifySpecSignature("/dev/null/key", "", 0, "", 0), ENOTDIR);
    EXPECT_EQ(log.messages(),
              "ROVU: Failed to open public-key file /dev/null/key: " + std::to_string(ENOTDIR) + "\n");
}
