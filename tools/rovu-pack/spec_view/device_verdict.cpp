// The log is caught through a channel on a stream in memory.

#include "spec_view/device_verdict.h"

#include "host/limited_work.h"
#include "lua_util/sandbox.h"
#include "signing/signing.h"
#include "spec_view/lua_value.h"
#include "spec_view/refused_key.h"
#include "spec_view/spec_view.h"
#include "spec_view/words.h"
#include "update_spec/spec_reader.h"
#include "update_spec/spec_signature.h"
#include "update_spec/spec_text.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char kEndOfHead[] = "]: ";

// A message may hold line feeds of the spec's; only what has a head begins a new one.
bool splitHead(const std::string& line, std::string* message) {
    const size_t end = line.find(kEndOfHead);
    const size_t open = line.find(" [");
    if (end == std::string::npos || open == std::string::npos || open > end) return false;
    for (size_t i = 0; i < open; ++i) {
        if (isupper(static_cast<unsigned char>(line[i])) == 0) return false;
    }
    *message = line.substr(end + sizeof kEndOfHead - 1);
    return true;
}

}  // namespace

DeviceLog::DeviceLog()
    : stream_(open_memstream(&bytes_, &size_)), channel_(LOG_channel_new(stream_, "pack")) {
    if (channel_ == nullptr) return;
    LOG_channel_set_levels(channel_, LOG_LVL_ERROR | LOG_LVL_WARNING);
    LOG_channel_apply(channel_);
}

DeviceLog::~DeviceLog() {
    LOG_channel_free(channel_);
    if (stream_ != nullptr) fclose(stream_);
    free(bytes_);
}

std::vector<std::string> DeviceLog::take() {
    std::vector<std::string> messages;
    if (stream_ == nullptr || fflush(stream_) != 0) return messages;
    std::istringstream fresh(std::string(bytes_ + taken_, size_ - taken_));
    taken_ = size_;
    for (std::string line, message; std::getline(fresh, line);) {
        if (splitHead(line, &message)) {
            messages.push_back(message);
        } else if (!messages.empty()) {
            messages.back() += "\n" + line;
        }
    }
    return messages;
}

std::string DeviceLog::takeText() {
    std::string text;
    for (const std::string& message : take()) {
        if (!text.empty() && text.back() == '.') text.pop_back();
        text += (text.empty() ? "" : "; ") + message;
    }
    return text;
}

std::string DeviceLog::takeFirstLine() {
    const std::vector<std::string> messages = take();
    return messages.empty() ? "" : messages.front().substr(0, messages.front().find('\n'));
}

std::string withMeaning(const std::string& message) {
    constexpr struct {
        int number;
        const char* meaning;
    } kMeanings[] = {
        {EBADMSG, "does not verify"},
        {EILSEQ, "malformed"},
        {EBADRQC, "does not evaluate"},
        {EOVERFLOW, "too long"},
        {ENOBUFS, "too long"},
        {EINVAL, "not a value that is allowed"},
        {ENOENT, "no such file"},
        {ENOMEM, "not enough memory"},
        {ENOSPC, "no space left"},
        {EACCES, "no permission"},
        {ENOKEY, "the set is not certain"},
    };
    const size_t end = message.find_last_not_of('.') + 1;
    for (const auto& row : kMeanings) {
        const std::string number = ": " + std::to_string(row.number);
        if (end < number.size() || message.compare(end - number.size(), number.size(), number) != 0) continue;
        return message.substr(0, end) + " (" + row.meaning + ")" + message.substr(end);
    }
    return message;
}

std::string withFullStop(const std::string& text) {
    return !text.empty() && text.back() == '.' ? text : text + ".";
}

namespace {

constexpr char kManifestAdvice[] =
    "This seems to be a manifest: check the spec that \"rovu-pack build\" makes of it, update.lua in its --out.";
constexpr char kTrialName[] = "update.lua";  // in the device's messages

bool fill(SpecBuffer* buffer, const std::string& bytes) {
    if (buffer->bytes != nullptr) memcpy(buffer->bytes, bytes.data(), bytes.size());
    return buffer->bytes != nullptr;
}

// Without a key a signature that is there cannot be judged; one that is not there still can.
bool authenticate(const SpecFile& spec, const SignatureUse& use) {
    if (spec.hasMarker && use.publicKey.empty()) return true;
    SpecBuffer buffer(spec.bytes.size());
    return fill(&buffer, spec.bytes) &&
           authenticateSpec(use.isUnsigned ? nullptr : use.publicKey.c_str(), spec.path, &buffer);
}

LuaState evaluate(const SpecFile& spec) {
    SpecBuffer buffer(spec.text.size());
    return LuaState(fill(&buffer, spec.text) ? evaluateSpec(&buffer) : nullptr);
}

SpecRecord recordOf(LuaState state) {
    return SpecRecord(state == nullptr ? nullptr : readSpec(state.release()), freeSpec);
}

std::string adviceOnSignature(const SpecFile& spec, const std::string& key) {
    const std::string evaluate = key.empty() ? "" : " Without --pub it is evaluated nevertheless.";
    if (!spec.hasMarker)
        return "Sign the spec, or give --unsigned if the devices run with \"-k NONE\"." + evaluate;
    if (spec.awaitsSignature())
        return "Have the spec signed, and append the signature: rovu-pack attach." + evaluate;
    return "Make sure that " + key +
           " is the devices' key, and get the spec again from whoever signed it. Sign it again only if the "
           "change is your own." +
           evaluate;
}

std::string adviceOnTable(const std::string& message) {
    constexpr struct {
        const char* said;
        const char* advice;
    } kAdvice[] = {
        {"String too long",
         "Shorten it: the models have at most 31 bytes, a script's name 31, an image's 63, a URL 159."},
        {"script name", "Shorten the name: a script's has at most 31 bytes."},
        {"Bad version string", "Write up to four numbers with dots, in quotes."},
        {" dependency",
         "Write { 'kernel', '3.10', '3.11' }: kernel or rootfs, the lowest and the highest version."},
        {"\"tdep", "Write a list of dependencies, as in { { 'kernel', '3.10', '3.11' } }."},
    };
    for (const auto& row : kAdvice) {
        if (message.find(row.said) != std::string::npos) return row.advice;
    }
    return "Fix what the message names.";
}

// Lua and the device's reader each have their own words for it.
bool saysOutOfMemory(const std::string& message) {
    return message.find("not enough memory") != std::string::npos ||
           message.find("spec file failed: " + std::to_string(ENOMEM)) != std::string::npos;
}

Finding& refuse(UpdateState state, const FindingPlace& place, const std::string& message,
                DeviceVerdict* verdict) {
    if (verdict->refusedIn == eStateInvalid) verdict->refusedIn = state;
    return verdict->findings.add(eDeviceRefuses, place,
                                 withFullStop("Every device refuses the spec: " + withMeaning(message)));
}

// Returns whether the spec may be evaluated.
bool judgeSignature(const SpecFile& spec, const SignatureUse& use, DeviceLog* log, DeviceVerdict* verdict) {
    if (authenticate(spec, use)) return true;
    const FindingPlace place = spec.hasMarker ? spec.atByte(spec.text.size()) : spec.at("");
    const bool isEvaluated = use.publicKey.empty();
    const std::string message =
        withFullStop(withMeaning(log->takeText())) + (isEvaluated ? "" : " So nothing of it is evaluated.");
    refuse(eStateDownloadingSpec, place, message, verdict).advice = adviceOnSignature(spec, use.publicKey);
    return isEvaluated;
}

void judgeTable(const SpecFile& spec, DeviceVerdict* verdict) {
    DeviceLog log;
    LuaState state = evaluate(spec);
    if (state == nullptr) {
        const std::string message = log.takeText();
        Finding& finding =
            refuse(eStateDownloadingSpec, {spec.path, "", lineInLuaMessage(message)}, message, verdict);
        const std::string cause = foreignCharacter(spec.text, message);
        if (!cause.empty()) finding.advice = "On that line " + cause + ".";
        if (readsVariables(message)) finding.advice = kManifestAdvice;
        return;
    }
    if (recordOf(std::move(state)) != nullptr) return;
    const std::string message = log.takeText();
    const bool isSmall = spec.bytes.size() <= kMaxSpecSize;  // a larger one would take too long
    const std::string key = isSmall ? refusedKey(evaluate(spec)) : "";
    refuse(eStateParsingSpec, spec.at(key), message, verdict).advice = adviceOnTable(message);
}

// As on the device, but within limits, which the reader of the table can break too.
Fault judgeWithinLimits(SpecFile* spec, DeviceVerdict* verdict) {
    evaluateTable(spec);
    DeviceVerdict ofTable;
    Fault fault = isBeyondLimits(spec->evaluation) || spec->evaluation.code() == EINTR
                      ? spec->evaluation
                      : doWithinLimits([&] { judgeTable(*spec, &ofTable); });
    const std::vector<Finding>& found = ofTable.findings.all;
    const bool hasNoMemory = std::any_of(found.begin(), found.end(),
                                         [](const Finding& finding) { return saysOutOfMemory(finding.why); });
    if (!fault && hasNoMemory) fault = beyondLimits();
    if (!fault) {
        if (verdict->refusedIn == eStateInvalid) verdict->refusedIn = ofTable.refusedIn;
        verdict->findings.append(ofTable.findings);
        return {};
    }
    if (!isBeyondLimits(fault)) return fault;
    spec->evaluation = fault;
    spec->hasTable = false;
    spec->table = LuaValue();
    if (verdict->refusedIn == eStateInvalid) verdict->refusedIn = eStateDownloadingSpec;
    verdict->findings.add(
        eEvaluationLimit, spec->at(""),
        "Evaluating the spec takes more than a second, 64 MiB or 10000 values, and a device has no "
        "such limits.");
    return {};
}

// The public key as a file for the device's code, which opens it by its path. It lies in memory.
class KeyInMemory {
public:
    explicit KeyInMemory(const std::string& pem) : file_(memfd_create("key", MFD_CLOEXEC)) {
        const ssize_t size = static_cast<ssize_t>(pem.size());
        if (file_.get() >= 0 && write(file_.get(), pem.data(), pem.size()) == size)
            path_ = "/proc/self/fd/" + std::to_string(file_.get());
    }

    // Empty if there is no memory for the file.
    const std::string& path() const { return path_; }

private:
    zem::Descriptor file_;
    std::string path_;
};

bool isTextAccepted(const std::string& text) {
    SpecBuffer buffer(text.size());
    return fill(&buffer, text) && recordOf(LuaState(evaluateSpec(&buffer))) != nullptr;
}

Fault refuseSize(size_t size) {
    if (size <= kMaxSpecSize) return {};
    return {EINVAL, "the spec has " + std::to_string(size) +
                        " bytes with its signature, and a device takes " + std::to_string(kMaxSpecSize) +
                        "; take comments out, and shorten names and URLs"};
}

bool isAccepted(const std::string& spec, const std::string& publicPem) {
    SpecBuffer buffer(spec.size());
    const KeyInMemory key(publicPem);
    if (key.path().empty() || !fill(&buffer, spec)) return false;
    if (!authenticateSpec(key.path().c_str(), kTrialName, &buffer)) return false;
    return recordOf(LuaState(evaluateSpec(&buffer))) != nullptr;
}

// The first message names the cause.
Fault refusal(const std::string& text, const std::string& cause) {
    if (saysOutOfMemory(cause)) return beyondLimits();
    std::string message = "the device refuses the spec: " + withMeaning(cause);
    if (text.find("function") != std::string::npos) message += " (it contains the word \"function\")";
    return {EINVAL, message};
}

// `size`: of the spec with its signature. The tools' limits hold for the table too: what `check` refuses is not signed.
Fault tryWithinLimits(const std::string& text, size_t size, const std::function<bool()>& isAccepted) {
    if (Fault fault = refuseSize(size)) return fault;
    LuaValue table;
    Fault evaluation = evaluateLua(kTrialName, text, &table);
    if (isBeyondLimits(evaluation)) return beyondLimits();
    if (evaluation.code() == EINTR) return evaluation;
    DeviceLog log;
    bool accepts = false;
    if (Fault fault = doWithinLimits([&] { accepts = isAccepted(); })) return fault;
    return accepts ? Fault() : refusal(text, log.takeFirstLine());
}

}  // namespace

Fault judge(const SignatureUse& use, SpecFile* spec, DeviceVerdict* verdict) {
    DeviceLog log;
    if (spec->bytes.size() > kMaxSpecSize) verdict->refusedIn = eStateDownloadingSpec;
    if (!judgeSignature(*spec, use, &log, verdict)) return {};
    if (Fault fault = judgeWithinLimits(spec, verdict)) return fault;
    if (!spec->hasMarker && viewOf(*spec).isManifest()) {
        for (Finding& finding : verdict->findings.all)
            finding.advice = kManifestAdvice;
    }
    return {};
}

SpecRecord readRecord(const SpecFile& spec) {
    return recordOf(evaluate(spec));
}

Fault tryOnDevice(const std::string& spec, const std::string& publicPem) {
    const std::string text = specFileOf(kTrialName, spec).text;
    return tryWithinLimits(text, spec.size(), [&] { return isAccepted(spec, publicPem); });
}

Fault tryTextOnDevice(const std::string& text) {
    const size_t size = specOf(text, "").size() + kSignatureTextSize;
    return tryWithinLimits(text, size, [&] { return isTextAccepted(text); });
}
