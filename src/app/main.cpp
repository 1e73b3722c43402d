#include "app/ExitCode.h"
#include "app/Session.h"
#include "app/StopSignal.h"
#include "app/Terminal.h"

#include <exception>
#include <new>

int main(int argc, char** argv) {
    app::StopSignal::Watch();
    app::Options options;
    try {
        if (const std::optional<int> done = app::ReadCommandLine(argc, argv, options)) return *done;
        return app::RunTask(options);
    } catch (const app::Failure& failure) {
        app::Complain(failure.fText);
        return failure.fCode;
    } catch (const std::bad_alloc&) {
        app::Complain("there is not enough memory for this model and these data");
        return app::kNotFitted;
    } catch (const std::exception& error) {
        app::Complain(std::string("the run ended unexpectedly: ") + error.what());
        return app::kNotFitted;
    }
}
