// `rovu-pack check` of a spec, for two devices and without its files. It has to agree with the device's code.

#include "fuzz_target.h"
#include "reports/reports.h"
#include "spec_input.h"
#include "update_spec/spec_reader.h"
#include "update_spec/spec_text.h"

#include <cstring>

namespace {

bool deviceAccepts(const std::string& file) {
    SpecBuffer buffer(file.size());
    memcpy(buffer.bytes, file.data(), file.size());
    require(authenticateSpec(nullptr, "spec", &buffer), "a spec that is not verified is good");
    lua_State* L = evaluateSpec(&buffer);
    UpdateSpecVer1* spec = L == nullptr ? nullptr : readSpec(L);
    const bool accepts = spec != nullptr;
    freeSpec(spec);
    return accepts;
}

bool isRefusedByOne(const CheckResult& result) {
    for (const FleetRow& row : result.fleet) {
        if (!row.accepts()) return true;
    }
    return false;
}

bool reportsRefusal(const CheckResult& result) {
    for (const Finding& finding : result.findings.all) {
        if (finding.code == eDeviceRefuses || finding.code == eEvaluationLimit) return true;
    }
    return false;
}

}  // namespace

extern "C" {

void* __real_calloc(size_t count, size_t size);

void* __wrap_calloc(size_t count, size_t size) {
    return count * size > kLargestBlock ? nullptr : __real_calloc(count, size);
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile* const file = new MemoryFile;
    static FILE* const out = fopen("/dev/null", "w");
    const std::string bytes(charsOf(data), size);
    if (size > kMaxSpecSize || mayHoldFunction(bytes)) return 0;
    file->fill(data, size);

    CheckOptions options;
    options.spec = file->path();
    options.signatureUse.isUnsigned = true;
    options.devices = {{"RV-20", "3.10.49-2", "2.4.1"}, {"RV-21", "4.1", "1.0", {"4.0", kBlank, ""}}};
    CheckResult result;
    require(!checkUpdate(options, &result), "a spec that can be read can be checked");
    require(reportsRefusal(result) == (!deviceAccepts(bytes) || isRefusedByOne(result)),
            "the check agrees with the device");
    require(result.fleet.size() <= options.devices.size(), "there is at most one row for a device");

    printFindings(result.findings, out);
    printFleet(result.fleet, out);
    for (const FleetRow& row : result.fleet)
        printPlan(row, out);
    require(!checkJson(result).empty(), "the result has a form for programs");
    return 0;
}
