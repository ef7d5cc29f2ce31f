#include "Script.h"

std::vector<Step> scriptOf(const QByteArray &input, char first) {
    constexpr char mark = '\xff';
    std::vector<Step> steps{{first, {}}};
    for (int i = 0; i < input.size(); ++i) {
        const bool isMark = input[i] == mark && i + 1 < input.size();
        if (isMark)
            ++i;
        if (isMark && input[i] != mark)
            steps.push_back({input[i], {}});
        else
            steps.back().bytes.append(input[i]);
    }
    return steps;
}
