#pragma once

/// Prints the banner of a run without arguments: name, version and legal notice between two rules.
void printLongBanner();

/// Prints the banner of any other run: one line with name and version.
void printShortBanner();

/// Prints that verbose output is enabled.
void printVerboseNotice();
