#pragma once

/// Edits the crontabs of all users who own tasks: without an argument a clean, with any argument a rebuild. Always
/// returns 0. On any exception, writes "Exception while cleaning cron" to standard output, without a line feed.
int main(int argc, char** argv);
