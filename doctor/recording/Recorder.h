// Reports every call of the program's code to the doctor without changing it.
#pragma once

#include "doctor/steps/Channel.h"
#include "support/DynamicLoader.h"
#include "support/readSmallTextFile.h"

namespace doctor {

/// While it exists, the small text files that are read, and the entry points of the vendors' libraries that
/// are opened through `loader`, are announced on the channel before each call and answered after it. One per
/// process, in a short-lived child: the vendors' tables keep its functions.
///
/// The calls are named as the libraries name them, "open LIBRARY", "close LIBRARY" and "read PATH". A symbol
/// that a library lacks is a message of the kind "missing", with "library" and "symbol".
class Recorder {
  public:
    explicit Recorder(Channel& toDoctor);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Opens libraries as the system's loader does. Entry points that the program calls without a benchmark
    /// are recorded.
    static DynamicLoader loader();

    /// Stops and restarts sending.
    void pause();
    void resume();

  private:
    Channel& channel;
    TextFileReader formerReader;
};

} // namespace doctor
