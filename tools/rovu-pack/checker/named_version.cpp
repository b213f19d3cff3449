#include "named_version.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

using Fields = std::vector<std::string>;

Fields fieldsOf(const std::string& version) {
    Fields fields;
    std::istringstream stream(version);
    for (std::string field; std::getline(stream, field, '.');)
        fields.push_back(field);
    return fields;
}

// Whether the fields that both have are the same.
bool agree(const Fields& one, const Fields& other) {
    return std::equal(one.begin(), one.begin() + static_cast<long>(std::min(one.size(), other.size())),
                      other.begin());
}

bool isDigit(char c) {
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

std::string otherVersion(const std::string& name, const std::vector<std::string>& versions) {
    for (size_t at = 0, end = 0; at < name.size(); at = end + 1) {
        end = at;
        while (end < name.size() && (isDigit(name[end]) || name[end] == '.'))
            ++end;
        std::string found = name.substr(at, end - at);
        while (!found.empty() && !isDigit(found.back()))
            found.pop_back();
        const Fields fields = fieldsOf(found);
        const bool isWord = at > 0 && isalpha(static_cast<unsigned char>(name[at - 1])) != 0 &&
                            name[at - 1] != 'v' && name[at - 1] != 'V';
        if (fields.size() < 2 || isWord) continue;
        bool isOther = false;
        for (const std::string& version : versions) {
            const Fields own = fieldsOf(version);
            if (own.empty() || own.front() != fields.front()) continue;
            isOther = true;
            if (agree(own, fields)) return "";
        }
        if (isOther) return found;
    }
    return "";
}
