// Findings, one paragraph each: what, where, why, what to do.

#include "reports.h"

#include <cctype>

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

// Names in a sentence are those of the spec and of tars, and may hold anything.
std::string onOneLine(std::string text) {
    for (char& c : text) {
        if (iscntrl(static_cast<unsigned char>(c)) != 0) c = ' ';
    }
    return text;
}

}  // namespace

void printFindings(const Findings& findings, FILE* out) {
    for (const Finding& finding : findings.all) {
        fprintf(out, "%-7s  %-22s  %s\n", severityText(finding.severity), findingCodeText(finding.code),
                placeText(finding.place).c_str());
        fprintf(out, "         %s\n         %s\n", onOneLine(finding.why).c_str(), finding.advice.c_str());
    }
}

void printCounts(const Findings& findings, FILE* out) {
    fprintf(out, "%s, %s, %s\n", countText(findings.count(eError), "error").c_str(),
            countText(findings.count(eWarning), "warning").c_str(),
            countText(findings.count(eNote), "note").c_str());
}
