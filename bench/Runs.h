#pragma once

#include <string>
#include <vector>

/// One whole run of a program.
struct Run {
    double milliseconds; ///< from the start of the program to its end, without the fork
    double processor; ///< milliseconds of processor time, of the program and the processes that it waited for
    long peakKiB; ///< largest resident memory of one of these processes
    int status; ///< exit status, or 128 plus the number of the signal that ended it
    std::string output; ///< what the program wrote to standard output
};

/// Runs the program with the path command[0] to its end, with standard input and standard error on /dev/null. If it
/// cannot be started, its status is 127. Throws std::runtime_error if it cannot fork.
Run timedRun(const std::vector<std::string>& command);

/// The quantile `part` (0 to 1) of `values`, interpolated between two of them. There must be at least one.
double quantile(std::vector<double> values, double part);

double median(const std::vector<double>& values);

/// `numerators` divided by `denominators`, pair by pair.
std::vector<double> ratios(const std::vector<double>& numerators, const std::vector<double>& denominators);
