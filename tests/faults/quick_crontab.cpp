// Stands in the place of crontab(1) where it is run thousands of times: on the crontabs of the recording one, without
// writing down its calls, and without a shell. Knows "-u NAME -l" and "-u NAME FILE".

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

bool copyFile(const char* from, int to)
{
    const int file = open(from, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    char bytes[4096];
    ssize_t size;
    while ((size = read(file, bytes, sizeof bytes)) > 0)
        if (write(to, bytes, static_cast<std::size_t>(size)) != size)
            return false;
    close(file);
    return size == 0;
}

bool install(const char* file, const std::string& tab)
{
    const std::string fresh = tab + ".new";
    const int target = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    return target >= 0 && copyFile(file, target) && std::rename(fresh.c_str(), tab.c_str()) == 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4 || std::strcmp(argv[1], "-u") != 0)
        return 2;
    const std::string tab = std::string("/usr/local/private-world/crontab/tabs/") + argv[2];
    const bool done = std::strcmp(argv[3], "-l") == 0 ? copyFile(tab.c_str(), STDOUT_FILENO) : install(argv[3], tab);
    return done ? 0 : 1;
}
