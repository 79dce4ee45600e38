// ostrelCtl: reads and changes the configuration database through the daemon.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <iostream>

#include "ctl/arguments.h"

namespace {

constexpr double shortestTimeout = 0.001;
constexpr double longestTimeout = 4e6;

std::chrono::milliseconds timeoutOf(double seconds) {
    // So that it fails for what is not a number, too.
    if (!(seconds >= shortestTimeout && seconds <= longestTimeout))
        failUsage("the timeout is 0.001 to 4000000 seconds");
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

Status run(int argc, char** argv, Arguments& arguments) {
    if (!parseArguments(argc, argv, arguments))
        return Status::done;
    Context context{.output = arguments.json ? makeJson() : makeLines(),
                    .onlyCheck = arguments.onlyCheck,
                    .showProgress = !arguments.json && isatty(STDERR_FILENO) == 1};
    context.session.setTimeout(timeoutOf(arguments.timeout));
    return arguments.run(context, arguments);
}

void flushResults(Status status) {
    if (!std::cout.flush())
        throw Failure(OSTREL_FAILED,
                      std::string("cannot write the result") +
                          (status == Status::done ? "; the command itself has succeeded" : ""));
}

int fail(const Arguments& arguments, const Failure& failure) {
    std::cout.flush();
    (arguments.json ? makeJson() : makeLines())->failure(failure);
    return static_cast<int>(exitStatus(failure.status()));
}

}  // namespace

int main(int argc, char** argv) {
    // Instead of an end by the signal, a closed pipe gets the failure that the manual page tells.
    std::signal(SIGPIPE, SIG_IGN);
    Arguments arguments;
    try {
        const Status status = run(argc, argv, arguments);
        flushResults(status);
        return static_cast<int>(status);
    } catch (const Failure& failure) {
        return fail(arguments, failure);
    } catch (const ostrel::Error& error) {
        return fail(arguments, {error.status(), error.what()});
    } catch (const std::exception& error) {
        return fail(arguments, {OSTREL_FAILED, error.what()});
    }
}
