// Edit distance with swaps of neighbours (optimal string alignment) over whole rows: the words are short.

#include "nearest_word.h"

#include <algorithm>

namespace {

size_t distanceOf(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> rows(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            size_t& best = rows[i][j];
            if (i == 0 || j == 0) {
                best = i + j;
                continue;
            }
            const size_t changed = a[i - 1] == b[j - 1] ? 0 : 1;
            best = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                best = std::min(best, rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

}  // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& words) {
    std::string nearest;
    size_t least = std::max<size_t>(2, word.size() / 3) + 1;  // farther off, it is another word
    for (const std::string& candidate : words) {
        const size_t distance = distanceOf(word, candidate);
        if (distance >= least || distance >= candidate.size()) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}
