#include "support/crypto.h"
#include "unit_test.h"
#include "update_spec/spec_signature.h"

namespace {

const char kKeyOf1024Bits[] =
    "-----BEGIN PUBLIC KEY-----\nMIGfMA0GCSqGSIb3DQEBAQUAA4GNADCBiQKBgQCcGAiLZao3ogUUe9vES6RN7hdB\n"
    "6gTS5ZSkN/cvpQio5Mqv3IkW0sgaYSl55SkAY9BiZTU+09apJOGx+e2FzQ9y7p1s\nM8mzvaychuSbgrh3ZOx/94+Afs12"
    "ENECL6WejyEcPqYO6D1cAAdDAhZN8+D8XeMD\nw74FutvxHxTrMVtu3QIDAQAB\n-----END PUBLIC KEY-----\n";

std::string signatureOf(const std::string& spec) {
    return signedText(spec).substr(spec.size() + 2);
}

int verify(const std::string& key, const std::string& spec, const std::string& signature) {
    const ScratchDir dir;
    const std::string keyFile = dir.path + "/key";
    writeWholeFile(keyFile, key);
    const std::string file = spec + "--" + signature + "=";  // nothing after either piece may count
    return verifySpecSignature(keyFile.c_str(), file.data(), spec.size(), file.data() + spec.size() + 2,
                               signature.size());
}

}  // namespace

TEST(SpecSignature, FollowsTheLastTwoHyphensIfNoMoreFollow) {
    constexpr ptrdiff_t kNone = -1;
    const struct {
        std::string file;
        ptrdiff_t marker;
    } rows[] = {
        {"text--c2ln", 4},  {"text\n--c2ln", 5},  {"a-b--c--d--c2ln", 9},
        {"text---c2ln", 5}, {"text--", 4},        {"--c2ln", 0},
        {"--", 0},          {"text -- end\n", 5}, {"a\0--s"s, 2},
        {"", kNone},        {"-", kNone},         {"text-", kNone},
        {"a--b-", kNone},   {"--x-y", kNone},     {"a--b 'http://x-y'", kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string memory = "-" + row.file + "-";  // nothing around it may count
        const char* const file = memory.data() + 1;
        const char* marker = findSignatureMarker(file, row.file.size());
        EXPECT_EQ(marker == nullptr ? kNone : marker - file, row.marker);
    }
}

TEST(SpecSignature, DecodesTo256BytesOfItsSpecAndItsKey) {
    const std::string key = publicKeyText(), spec = "{ -- a spec\n}\n", signature = signatureOf(spec);
    std::string otherKey = key;
    otherKey[100] = otherKey[100] == 'A' ? 'B' : 'A';  // within the modulus
    const std::string bytes255(340, 'A');
    const struct {
        const char* name;
        std::string key, spec, signature;
        int result;
    } rows[] = {
        {"signed", key, spec, signature, 0},
        {"text before the key", "a key:\n" + key, spec, signature, 0},
        {"empty spec", key, "", signatureOf(""), 0},
        {"changed spec", key, "{ -- a spec\n]\n", signature, EBADMSG},
        {"another spec's signature", key, spec, signatureOf("{}"), EBADMSG},
        {"key of 1024 bits", kKeyOf1024Bits, spec, signature, EBADMSG},
        {"another key", otherKey, spec, signature, EBADMSG},
        {"wrong PEM label", std::regex_replace(key, std::regex("PUBLIC"), "RSA PUBLIC"), spec, signature,
         ENOMEM},
        {"empty key file", "", spec, signature, ENOMEM},
        {"256 bytes", key, spec, bytes255 + "AA==", EBADMSG},
        {"255 bytes", key, spec, bytes255, EILSEQ},
        {"257 bytes", key, spec, bytes255 + "AAA=", EILSEQ},
        {"300 bytes", key, spec, std::string(400, 'A'), EILSEQ},
        {"no base64", key, spec, std::string(344, '!'), EILSEQ},
        {"empty signature", key, spec, "", EILSEQ},
        {"without a part of its padding", key, spec, bytes255 + "AA=", EILSEQ},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LogCapture log;
        EXPECT_EQ(verify(row.key, row.spec, row.signature), row.result);
        EXPECT_EQ(log.messages(), "");
    }
}
