#pragma once

/// Makes standard input, output and error safe to use, whatever state the parent left them in: closed ones
/// are opened on `nullDevice` (or the next file to be opened would take their place and receive the report),
/// output is line-buffered wherever it goes, and neither a vanished reader nor a file at its size limit ends
/// the program.
void prepareStandardStreams(const char* nullDevice = "/dev/null");
