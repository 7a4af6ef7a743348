#pragma once

/// Keeps the crontabs of the users who own tasks in step with the task database: without an argument takes the task
/// lines out of them, with any argument appends one for each schedulable task. Returns 0 whatever happens. On any
/// exception writes "Exception while cleaning cron", without a line break, to standard output.
int main(int argc, char** argv);
