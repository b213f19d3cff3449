// Findings, one paragraph each: what, where, why, what to do.

#include "printable.h"
#include "reports.h"

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
