#pragma once

#include <string>

namespace app {

/// What the program tells its caller.
enum ExitCode {
    kFitted = 0,
    kNotFitted = 1,  ///< the run finished, but a model could not be fitted or did not converge
    kWrongUse = 2,   ///< wrong options or a wrong command
    kFileError = 3,  ///< data or file error
    kStopped = 130   ///< stopped by the user
};

constexpr const char* kNoMemory = "there is not enough memory for this model and these data";

/// Why the program ends early. Thrown inside the room; the program reports it in one message.
struct Failure {
    ExitCode fCode;
    std::string fText;
};

}  // namespace app
