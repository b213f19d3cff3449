#include "findings_json.h"

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
