#include "Tables.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace support {

namespace {

constexpr std::size_t mostRows = 40; // the record bound

int idOf(const std::string& row)
{
    return std::stoi(row);
}

// With the statement done or not, and with the first so many removed of the tasks that `after` lacks.
Rows tableBetween(const Rows& before, const Rows& after, bool statementDone, std::size_t removed)
{
    Rows table;
    for (const std::string& row : before) {
        const auto sameId = [&row](const std::string& other) { return idOf(other) == idOf(row); };
        const auto now = std::find_if(after.begin(), after.end(), sameId);
        if (now == after.end() && removed > 0)
            --removed;
        else
            table.push_back(now != after.end() && statementDone ? *now : row);
    }
    for (const std::string& row : after)
        if (statementDone && idOf(row) > idOf(before.back()))
            table.push_back(row);
    return table;
}

} // namespace

bool contains(const Rows& rows, const std::string& row)
{
    return std::find(rows.begin(), rows.end(), row) != rows.end();
}

bool isBetweenStatements(const Rows& rows, const Rows& before, const Rows& after)
{
    if (rows.size() < mostRows) // no more is removed than the bound asks for
        return false;
    for (std::size_t removed = 0; removed <= before.size() - mostRows + 1; ++removed)
        for (const bool statementDone : {false, true})
            if (rows == tableBetween(before, after, statementDone, removed))
                return true;
    return false;
}

} // namespace support
