#include <TavIDL/host/EmpSession.h>
#include <thrift/transport/TTransportException.h>

#include <mutex>
#include <system_error>

#include "connection.h"
#include "failure.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

using apache::thrift::transport::TTransportException;

namespace {

struct Step {
    const Operation& operation;
    Json arguments;
};

// "OPERATION key=value ... OPERATION ...": a word without '=' begins the next call.
std::vector<Step> stepsFrom(const std::vector<std::string>& words, const std::string& emp,
                            const std::string& version, const std::string& credential) {
    std::vector<Step> steps;
    for (auto word = words.begin(); word != words.end();) {
        const Operation& operation = operationNamed(*word, "TavEmp");
        const auto end = std::find_if(word + 1, words.end(), [](const std::string& next) {
            return next.find('=') == std::string::npos;
        });
        Json given = Json::object();
        for (const Field& field : operation.arguments) {
            if (field.name == "name" || field.name == "version") {
                given[field.name] = field.name == "name" ? emp : version;
            } else if (field.secret()) {
                given[field.name] = credential;
            }
        }
        steps.push_back({operation, argumentsFrom(operation, {word + 1, end}, given)});
        word = end;
    }
    return steps;
}

// After a signal no more calls begin, except that which closes the EMP. (Those that have begun are
// cancelled.)
void beginOnlyClosing(std::string& operation) {
    if (stop::requested() && operation != "CloseEmp") {
        throw TTransportException(TTransportException::INTERRUPTED, "a signal came");
    }
}

// Shared with the thread that acts on signals, which may outlive all others.
class Session : public std::enable_shared_from_this<Session> {
public:
    // `words` are the name of the EMP and its version.
    Session(const OpenOptions& options, const std::string& address, std::vector<std::string> words)
        : options_(options),
          broker_(address, clientSettings(options.settings, beginOnlyClosing)),
          words_(std::move(words)),
          credential_(options.credential.get()),
          steps_(stepsFrom(options.calls, words_[0], words_[1], credential_)) {}

    int run() {
        stop::watch([self = shared_from_this()] { self->interrupt(); });
        open();
        try {
            runSteps();
            if (options_.stay || steps_.empty()) {
                note("open until a signal comes");
                stop::wait();
                waited_ = true;
            }
        } catch (const Failure& failure) {
            // Reported now, but the EMP is closed first.
            fail(failure);
        }
        close();
        // A signal came before its work was done.
        return stop::requested() && !waited_ ? stop::status() : status_;
    }

private:
    void interrupt() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (emp_ == nullptr) {
            broker_.cancel();
            return;
        }
        note(stop::status() == 0 ? "ending, once the EMP is closed: nobody reads the output"
                                 : "ending, once the EMP is closed; a second signal ends at once");
        (*emp_)->cancel();
    }

    void open() {
        const bool certified = !options_.settings.tls || !options_.settings.cert.empty();
        TavIDL::EmpSession::OnEvent onEvent;
        if (certified) {
            onEvent = [](int32_t type, const std::string& param1, const std::string& param2) {
                showEvent({{"eventType", type}, {"param1", param1}, {"param2", param2}});
            };
        }
        TavIDL::Settings settings = clientSettings(options_.settings, beginOnlyClosing);
        settings.onFailure = [](const std::string& failure) {
            printError({Exit::Broken, failure});
        };
        std::unique_ptr<TavIDL::EmpSession> emp;
        const char* const operation = "TavBroker.OpenEmp";
        try {
            emp = std::make_unique<TavIDL::EmpSession>(broker_, words_[0], words_[1], credential_,
                                                       onEvent, settings);
        } catch (const TavIDL::CallFailed& failed) {
            throw notOpened(failed, failureFrom(failed, operation, broker_));
        } catch (const std::system_error& taken) {
            throw Failure(Exit::NoConnection, taken.what(),
                          "the broker chose this port for events, so it must be free here");
        } catch (const std::exception& thrown) {
            throw failureFrom(thrown, operation, broker_);
        }
        show(operation, emp->info());
        if (emp->info().callbackServicePort == 0) {
            note("no events: the broker names no port for them");
        } else if (!certified) {
            note("no events: with --tls these need --cert and --key");
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        emp_ = std::move(emp);
    }

    // The broker may have opened the EMP though its answer did not come.
    static Failure notOpened(const TavIDL::CallFailed& failed, const Failure& failure) {
        const auto status =
            stop::status() == 0 ? failure.status : static_cast<Exit>(stop::status());
        return failed.sent()
                   ? Failure(status, std::string(failure.what()) + "; an EMP may be left open",
                             failure.hint)
                   : Failure(status, failure.what(), failure.hint);
    }

    void runSteps() {
        for (const Step& step : steps_) {
            if (stop::requested()) {
                return;
            }
            show(step.operation.fullName(), call(step.operation, **emp_, step.arguments));
            if (status_ != 0) {
                return;  // a false reply where true was expected
            }
        }
    }

    void close() {
        const char* const operation = "TavBroker.CloseEmp";
        try {
            show(operation, emp_->close());
        } catch (const apache::thrift::TException& thrown) {
            const Failure failure = failureFrom(thrown, operation, broker_);
            fail(Failure(
                failure.status,
                "the EMP " + shown(emp_->info().empID) + " may still be open: " + failure.what(),
                failure.hint));
        }
    }

    void show(const std::string& operation, const Json& result) {
        tavctl::show(
            {{"operation", operation}, {"result", result}},
            tinted(Tint::Good, operation) + (result.is_object() ? "\n" : "  ") + described(result));
        if (options_.expectTrue && result == false && status_ == 0) {
            status_ = static_cast<int>(Exit::False);
        }
    }

    void fail(const Failure& failure) {
        if (!stop::requested()) {
            printError(failure);
        }
        if (status_ == 0) {
            status_ = static_cast<int>(failure.status);
        }
    }

    const OpenOptions& options_;
    TavIDL::RemoteBroker broker_;
    const std::vector<std::string> words_;
    const std::string credential_;
    const std::vector<Step> steps_;
    std::mutex mutex_;  // of emp_, where another thread could change or use it
    std::unique_ptr<TavIDL::EmpSession> emp_;
    bool waited_ = false;
    int status_ = 0;
};

}  // namespace

int openEmp(const OpenOptions& options) {
    std::vector<std::string> words = options.words;
    if (words.size() < 2 || words.size() > 3) {
        throw Failure(Exit::Usage, "open takes ADDRESS NAME VERSION", "see tavctl open --help");
    }
    const std::string address = takeAddress(words, words.size() == 3);
    return std::make_shared<Session>(options, address, words)->run();
}

}  // namespace tavctl
