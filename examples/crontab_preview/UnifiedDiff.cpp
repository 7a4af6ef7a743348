#include "UnifiedDiff.h"

#include <algorithm>

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t contextLines = 3;

// One line of the diff: ' ' stands in both texts, '-' in the first, '+' in the second.
struct Step {
    char sign;
    std::string line;
};

// The length of the longest common sequence of lines, for each pair of ends of `a` and `b`.
class CommonLengths {
public:
    CommonLengths(const Lines& a, const Lines& b)
        : m_columns(b.size() + 1)
        , m_lengths((a.size() + 1) * m_columns)
    {
        for (std::size_t i = a.size(); i-- > 0;)
            for (std::size_t j = b.size(); j-- > 0;)
                at(i, j) = a[i] == b[j] ? of(i + 1, j + 1) + 1 : std::max(of(i + 1, j), of(i, j + 1));
    }

    std::size_t of(std::size_t i, std::size_t j) const { return m_lengths[i * m_columns + j]; }

private:
    std::size_t& at(std::size_t i, std::size_t j) { return m_lengths[i * m_columns + j]; }

    std::size_t m_columns;
    std::vector<std::size_t> m_lengths;
};

void appendAll(std::vector<Step>& steps, char sign, Lines::const_iterator begin, Lines::const_iterator end)
{
    std::for_each(begin, end, [&](const std::string& line) { steps.push_back({sign, line}); });
}

void appendChanges(std::vector<Step>& steps, const Lines& a, const Lines& b)
{
    const CommonLengths common(a, b);
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() || j < b.size()) {
        if (i < a.size() && j < b.size() && a[i] == b[j]) {
            steps.push_back({' ', a[i++]});
            ++j;
        } else if (i < a.size() && (j == b.size() || common.of(i + 1, j) >= common.of(i, j + 1)))
            steps.push_back({'-', a[i++]});
        else
            steps.push_back({'+', b[j++]});
    }
}

std::vector<Step> stepsBetween(const Lines& a, const Lines& b)
{
    // Only what lies between the common ends is compared in full.
    const auto [aChange, bChange] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    const auto [aRest, bRest] = std::mismatch(
        a.rbegin(), std::make_reverse_iterator(aChange), b.rbegin(), std::make_reverse_iterator(bChange));
    std::vector<Step> steps;
    appendAll(steps, ' ', a.begin(), aChange);
    appendChanges(steps, Lines(aChange, aRest.base()), Lines(bChange, bRest.base()));
    appendAll(steps, ' ', aRest.base(), a.end());
    return steps;
}

std::size_t countOf(const std::vector<Step>& steps, std::size_t begin, std::size_t end, char besideContext)
{
    return static_cast<std::size_t>(std::count_if(steps.begin() + static_cast<std::ptrdiff_t>(begin),
        steps.begin() + static_cast<std::ptrdiff_t>(end),
        [&](const Step& step) { return step.sign == ' ' || step.sign == besideContext; }));
}

// "12,3": where the lines of one of the texts begin, from 1, and how many they are; of none, the line before.
std::string range(std::size_t linesBefore, std::size_t count)
{
    return std::to_string(linesBefore + (count > 0 ? 1 : 0)) + (count == 1 ? "" : "," + std::to_string(count));
}

std::string hunk(const std::vector<Step>& steps, std::size_t begin, std::size_t end)
{
    std::string text = "@@ -" + range(countOf(steps, 0, begin, '-'), countOf(steps, begin, end, '-')) + " +"
        + range(countOf(steps, 0, begin, '+'), countOf(steps, begin, end, '+')) + " @@\n";
    for (std::size_t i = begin; i < end; ++i) {
        text += steps[i].sign + steps[i].line;
        if (steps[i].line.back() != '\n')
            text += "\n\\ No newline at end of file\n";
    }
    return text;
}

std::size_t nextChange(const std::vector<Step>& steps, std::size_t from)
{
    while (from < steps.size() && steps[from].sign == ' ')
        ++from;
    return from;
}

// Behind the last change before which no more lines are unchanged than two contexts hold.
std::size_t changesEnd(const std::vector<Step>& steps, std::size_t change)
{
    std::size_t end = change;
    while (change < steps.size() && change - end <= 2 * contextLines) {
        end = change + 1;
        change = nextChange(steps, end);
    }
    return end;
}

} // namespace

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t feed = text.find('\n', begin);
        const std::size_t end = feed == std::string::npos ? text.size() : feed + 1;
        lines.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return lines;
}

std::string unifiedDiff(
    const std::string& before, const std::string& beforeName, const std::string& after, const std::string& afterName)
{
    if (before == after)
        return "";
    const std::vector<Step> steps = stepsBetween(linesOf(before), linesOf(after));
    std::string text = "--- " + beforeName + "\n+++ " + afterName + "\n";
    for (std::size_t change = nextChange(steps, 0); change < steps.size();) {
        const std::size_t end = changesEnd(steps, change);
        text += hunk(steps, change - std::min(change, contextLines), std::min(end + contextLines, steps.size()));
        change = nextChange(steps, end);
    }
    return text;
}
