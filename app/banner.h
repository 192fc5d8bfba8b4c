#pragma once

/// Prints what a run without arguments begins with: name, version and legal notice between two rules.
void printLongBanner();

/// Prints the one line of name and version that any other run begins with.
void printShortBanner();

/// Prints that the log says everything.
void printVerboseNotice();
