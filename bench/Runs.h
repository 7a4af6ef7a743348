#pragma once

#include <string>
#include <vector>

/// One whole run of a program.
struct Run {
    double milliseconds; ///< from the start of the program to its end, without the making of the process
    double processor; ///< milliseconds of processor time, of the program and all that it waited for
    long peakKiB; ///< most memory that one process of the run had resident: the program, or one that it waited for
    int status; ///< exit status; 128 and the number of the signal if one ended it
    std::string output; ///< what the program wrote to standard output
};

/// Runs a program, command[0] being its path, to its end, with standard input and standard error on /dev/null. Throws
/// std::runtime_error if the process cannot be made; a program that cannot be started has the status 127.
Run timedRun(const std::vector<std::string>& command);

/// The value below which the part `part` (0 to 1) of `values` lies, between two of them by proportion. There must be
/// one at least.
double quantile(std::vector<double> values, double part);

double median(const std::vector<double>& values);

/// `numerators` by `denominators`, pair by pair.
std::vector<double> ratios(const std::vector<double>& numerators, const std::vector<double>& denominators);
