#include "UnifiedDiff.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>

namespace {

using Lines = std::vector<std::string>;
using Numbers = std::vector<int>;

constexpr std::size_t contextLines = 3;

// For each line a number that the lines equal to it, in both texts, have too, and no other.
class LineNumbers {
public:
    Numbers of(const Lines& lines)
    {
        Numbers numbers;
        numbers.reserve(lines.size());
        for (const std::string& line : lines)
            numbers.push_back(m_numbers.emplace(line, static_cast<int>(m_numbers.size())).first->second);
        return numbers;
    }

private:
    std::unordered_map<std::string_view, int> m_numbers;
};

// An array whose first index is `first`.
class Furthest {
public:
    Furthest(int first, int last)
        : m_first(first)
        , m_values(static_cast<std::size_t>(last - first + 1))
    {
    }

    int& operator[](int index) { return m_values[static_cast<std::size_t>(index - m_first)]; }

private:
    int m_first;
    Numbers m_values;
};

// A shortest way from one text to the other, by Myers' method in linear space: the way is searched from both ends at
// once, and what lies before and behind the point where the searches meet is compared in turn. The time grows with the
// number of lines times that of the changed ones; the memory only with the number of lines.
//
// A point (x, y) stands behind x lines of the first text and y of the second; it is on the diagonal x - y.
class Changes {
public:
    Changes(const Numbers& a, const Numbers& b)
        : removed(a.size())
        , added(b.size())
        , m_a(a)
        , m_b(b)
        , m_forward(-static_cast<int>(b.size()) - 1, static_cast<int>(a.size()) + 1)
        , m_backward(-static_cast<int>(b.size()) - 1, static_cast<int>(a.size()) + 1)
    {
        compare({0, 0}, {static_cast<int>(a.size()), static_cast<int>(b.size())});
    }

    std::vector<bool> removed; ///< which lines of the first text are not in the second
    std::vector<bool> added; ///< which lines of the second text are not in the first

private:
    struct Point {
        int x;
        int y;
    };

    // The diagonals that a search has reached. The two beside them hold a value that no way leads on from.
    struct Reach {
        int low;
        int high;

        // By one diagonal on each side. Where there is none left, by one less: every other one is looked at in turn.
        void widen(Furthest& furthest, int lowest, int highest, int none)
        {
            if (low > lowest)
                furthest[--low - 1] = none;
            else
                ++low;
            if (high < highest)
                furthest[++high + 1] = none;
            else
                --high;
        }
        bool has(int diagonal) const { return diagonal >= low && diagonal <= high; }
    };

    bool equal(int x, int y) const { return m_a[static_cast<std::size_t>(x)] == m_b[static_cast<std::size_t>(y)]; }

    void compare(Point begin, Point end)
    {
        for (; begin.x < end.x && begin.y < end.y && equal(begin.x, begin.y); ++begin.x)
            ++begin.y;
        for (; begin.x < end.x && begin.y < end.y && equal(end.x - 1, end.y - 1); --end.x)
            --end.y;
        if (begin.x == end.x || begin.y == end.y) {
            std::fill(removed.begin() + begin.x, removed.begin() + end.x, true);
            std::fill(added.begin() + begin.y, added.begin() + end.y, true);
            return;
        }
        const Point middle = meeting(begin, end);
        compare(begin, middle);
        compare(middle, end);
    }

    // A point in the middle of a shortest way between two points that differ in their first and in their last lines.
    Point meeting(Point begin, Point end)
    {
        const int lowest = begin.x - end.y;
        const int highest = end.x - begin.y;
        Reach forward{begin.x - begin.y, begin.x - begin.y};
        Reach backward{end.x - end.y, end.x - end.y};
        m_forward[forward.low] = begin.x;
        m_backward[backward.low] = end.x;
        const bool forwardMeets = (forward.low - backward.low) % 2 != 0;
        for (;;) {
            forward.widen(m_forward, lowest, highest, std::numeric_limits<int>::min());
            for (int diagonal = forward.low; diagonal <= forward.high; diagonal += 2) {
                const int x = m_forward[diagonal] = goForward(diagonal, end);
                if (forwardMeets && backward.has(diagonal) && m_backward[diagonal] <= x)
                    return {x, x - diagonal};
            }
            backward.widen(m_backward, lowest, highest, std::numeric_limits<int>::max());
            for (int diagonal = backward.low; diagonal <= backward.high; diagonal += 2) {
                const int x = m_backward[diagonal] = goBackward(diagonal, begin);
                if (!forwardMeets && forward.has(diagonal) && x <= m_forward[diagonal])
                    return {x, x - diagonal};
            }
        }
    }

    int goForward(int diagonal, Point end)
    {
        int x = std::max(m_forward[diagonal - 1] + 1, m_forward[diagonal + 1]);
        while (x < end.x && x - diagonal < end.y && equal(x, x - diagonal))
            ++x;
        return x;
    }

    int goBackward(int diagonal, Point begin)
    {
        int x = std::min(m_backward[diagonal - 1], m_backward[diagonal + 1] - 1);
        while (x > begin.x && x - diagonal > begin.y && equal(x - 1, x - diagonal - 1))
            --x;
        return x;
    }

    const Numbers& m_a;
    const Numbers& m_b;
    Furthest m_forward; ///< how far along each diagonal the search from the beginning has come, as an x
    Furthest m_backward; ///< the same of the search from the end
};

// One line of the diff: ' ' stands in both texts, '-' in the first, '+' in the second.
struct Step {
    char sign;
    std::string_view line;
};

std::vector<Step> stepsBetween(const Lines& a, const Lines& b)
{
    LineNumbers numbers;
    const Numbers aNumbers = numbers.of(a);
    const Numbers bNumbers = numbers.of(b);
    const Changes changes(aNumbers, bNumbers);
    std::vector<Step> steps;
    for (std::size_t i = 0, j = 0; i < a.size() || j < b.size();) {
        if (i < a.size() && changes.removed[i])
            steps.push_back({'-', a[i++]});
        else if (j < b.size() && changes.added[j])
            steps.push_back({'+', b[j++]});
        else {
            steps.push_back({' ', a[i++]});
            ++j;
        }
    }
    return steps;
}

// "12,3": where the lines of one of the texts begin, from 1, and how many they are; of none, the line before.
std::string range(std::size_t linesBefore, std::size_t count)
{
    return std::to_string(linesBefore + (count > 0 ? 1 : 0)) + (count == 1 ? "" : "," + std::to_string(count));
}

// Writes the pieces of a diff, from the first step on, and counts the lines of the two texts as it goes.
class HunkWriter {
public:
    explicit HunkWriter(const std::vector<Step>& steps)
        : m_steps(steps)
    {
    }

    void write(std::string& text, std::size_t begin, std::size_t end)
    {
        pass(begin);
        const std::size_t before = m_before;
        const std::size_t after = m_after;
        pass(end);
        text += "@@ -" + range(before, m_before - before) + " +" + range(after, m_after - after) + " @@\n";
        for (std::size_t i = begin; i < end; ++i) {
            text += m_steps[i].sign;
            text += m_steps[i].line;
            if (m_steps[i].line.back() != '\n')
                text += "\n\\ No newline at end of file\n";
        }
    }

private:
    void pass(std::size_t end)
    {
        for (; m_passed < end; ++m_passed) {
            m_before += m_steps[m_passed].sign != '+' ? 1 : 0;
            m_after += m_steps[m_passed].sign != '-' ? 1 : 0;
        }
    }

    const std::vector<Step>& m_steps;
    std::size_t m_passed = 0;
    std::size_t m_before = 0; ///< lines of the first text in the steps that were passed
    std::size_t m_after = 0; ///< the same of the second
};

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
    const Lines beforeLines = linesOf(before);
    const Lines afterLines = linesOf(after);
    const std::vector<Step> steps = stepsBetween(beforeLines, afterLines);
    HunkWriter hunks(steps);
    std::string text = "--- " + beforeName + "\n+++ " + afterName + "\n";
    for (std::size_t change = nextChange(steps, 0); change < steps.size();) {
        const std::size_t end = changesEnd(steps, change);
        hunks.write(text, change - std::min(change, contextLines), std::min(end + contextLines, steps.size()));
        change = nextChange(steps, end);
    }
    return text;
}
