#include "long_job.h"

#include <exception>
#include <qx.hpp>

#include "interrupt.h"
#include "messages.h"

namespace qx::tool {

ExitStatus RunJob(ProgressLine& progress, const std::function<std::string()>& where,
                  const std::function<void()>& body) {
    std::string reason;
    try {
        body();
        progress.Clear();
        return ExitStatus::Done;
    } catch (const WrongUse&) {
        throw;
    } catch (const Interrupted&) {
        reason = "interrupted";
    } catch (const Error& error) {
        reason = where() + ": " + Describe(error);
    } catch (const std::exception& error) {
        reason = error.what();
    }
    progress.Clear();
    Complain(reason);
    return ExitStatus::Failure;
}

}  // namespace qx::tool
