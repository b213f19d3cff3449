// Findings, one paragraph each: what, where, why, what to do.

#include "reports/findings.h"

#include "host/printable.h"
#include "reports/reports.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kIndent = 2;

Json findingJson(const Finding& finding) {
    const FindingPlace& place = finding.place;
    return {{"code", findingCodeText(finding.code)},
            {"severity", severityText(finding.severity)},
            {"file", place.file},
            {"key", place.key.empty() ? Json(nullptr) : Json(place.key)},
            {"line", place.line == 0 ? Json(nullptr) : Json(place.line)},
            {"why", finding.why},
            {"advice", finding.advice}};
}

}  // namespace

void addFindings(const Findings& findings, Json* whole) {
    Json list = Json::array();
    for (const Finding& finding : findings.all)
        list.push_back(findingJson(finding));
    whole->update({{"errors", findings.count(eError)},
                   {"warnings", findings.count(eWarning)},
                   {"notes", findings.count(eNote)},
                   {"findings", list}});
}

std::string jsonText(const Json& whole) {
    return whole.dump(kIndent, ' ', true, Json::error_handler_t::replace) + "\n";
}

namespace {

std::string placeText(const FindingPlace& place) {
    std::string text = place.file;
    if (place.line != 0) text += ":" + std::to_string(place.line);
    if (!place.key.empty()) text += " " + place.key;
    return text;
}

std::string countText(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

void printFindings(const Findings& findings, FILE* out) {
    for (const Finding& finding : findings.all) {
        fprintf(out, "%-7s  %-22s  %s\n", severityText(finding.severity), findingCodeText(finding.code),
                printable(placeText(finding.place)).c_str());
        fprintf(out, "         %s\n         %s\n", printable(finding.why).c_str(),
                printable(finding.advice).c_str());
    }
}

void printCounts(const Findings& findings, FILE* out) {
    fprintf(out, "%s, %s, %s\n", countText(findings.count(eError), "error").c_str(),
            countText(findings.count(eWarning), "warning").c_str(),
            countText(findings.count(eNote), "note").c_str());
}
