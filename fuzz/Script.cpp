#include "Script.h"

std::vector<Step> scriptOf(const std::uint8_t *data, std::size_t size, char first) {
    constexpr std::uint8_t mark = 0xFF;
    std::vector<Step> steps{{first, {}}};
    for (std::size_t i = 0; i < size; ++i) {
        const bool isMark = data[i] == mark && i + 1 < size;
        if (isMark)
            ++i;
        if (isMark && data[i] != mark) {
            steps.push_back({static_cast<char>(data[i]), {}});
        } else {
            steps.back().bytes.append(static_cast<char>(data[i]));
        }
    }
    return steps;
}
