#pragma once

/// Makes standard input, output and error safe to use, whatever the parent left of them: closed ones lead to
/// `nullDevice` (or the next file to be opened would take their place and receive the report), output goes
/// out line by line wherever it leads, and a reader that goes away or a file at its size limit does not end
/// the program.
void prepareStandardStreams(const char* nullDevice = "/dev/null");
