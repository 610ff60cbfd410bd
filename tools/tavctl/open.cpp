#include <sys/socket.h>

#include <mutex>

#include "events.h"
#include "failure.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace {

struct Options {
    Settings settings;
    Credential credential;
    std::string address;
    std::string name;
    std::string version;
    std::vector<std::string> words;
    bool stay = false;
    bool expectTrue = false;
};

struct Step {
    const Operation& operation;
    Json arguments;
};

// "OPERATION key=value ... OPERATION ...": a word without '=' begins the next call.
std::vector<Step> stepsFrom(const Options& options, const std::string& credential) {
    std::vector<Step> steps;
    const auto& words = options.words;
    for (auto word = words.begin(); word != words.end();) {
        const std::string name = "TavEmp." + *word;
        const Operation& operation = operationNamed(name);
        const auto end = std::find_if(word + 1, words.end(), [](const std::string& next) {
            return next.find('=') == std::string::npos;
        });
        Json given = Json::object();
        for (const Field& field : operation.arguments) {
            if (field.name == "name" || field.name == "version") {
                given[field.name] = field.name == "name" ? options.name : options.version;
            } else if (field.secret()) {
                given[field.name] = credential;
            }
        }
        steps.push_back({operation, argumentsFrom(operation, {word + 1, end}, given)});
        word = end;
    }
    return steps;
}

// The connection to the EMP, which a signal may end while it waits.
class EmpConnection {
public:
    EmpConnection(const Address& address, const Settings& settings)
        : connection_(address, settings) {
        const std::lock_guard<std::mutex> lock(mutex_);
        current_ = &connection_;
    }
    ~EmpConnection() {
        const std::lock_guard<std::mutex> lock(mutex_);
        current_ = nullptr;
    }

    Connection& get() { return connection_; }

    static void interrupt() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (current_ != nullptr) {
            current_->interrupt();
        }
    }

private:
    static std::mutex mutex_;
    static Connection* current_;
    Connection connection_;
};
std::mutex EmpConnection::mutex_;
Connection* EmpConnection::current_ = nullptr;

class Session {
public:
    explicit Session(const Options& options)
        : options_(options),
          broker_(addressFrom(options.address)),
          credential_(options.credential.get()),
          steps_(stepsFrom(options, credential_)) {}

    int run() {
        stop::watch([] {
            note("ending, once the EMP is closed; a second signal ends at once");
            EmpConnection::interrupt();
        });
        const Json info = brokerCall(
            "TavBroker.OpenEmp",
            {{"name", options_.name}, {"version", options_.version}, {"credential", credential_}});
        std::unique_ptr<Server> events;
        try {
            events = listen(info);
            runSteps(info);
            if (options_.stay || steps_.empty()) {
                note("open until a signal comes");
                stop::wait();
                waited_ = true;
            }
        } catch (const Failure& failure) {
            // Told, but the EMP is closed first.
            fail(failure);
        }
        try {
            brokerCall("TavBroker.CloseEmp", {{"connectionInfo", info}});
        } catch (const Failure& failure) {
            fail(
                Failure(failure.status,
                        "the EMP " + shown(info["empID"]) + " may still be open: " + failure.what(),
                        failure.hint));
        }
        if (events != nullptr) {
            // What was sent before the EMP was closed is still shown.
            events->drain(kDrainMs);
            events->stop();
        }
        // Told to end before its work was done.
        return stop::requested() && !waited_ ? stop::status() : status_;
    }

private:
    static constexpr int kDrainMs = 1000;

    // Each call to the broker has a connection of its own: one that was idle meanwhile may have
    // been closed, and then the EMP could not be.
    Json brokerCall(const std::string& name, const Json& arguments) {
        Connection connection(broker_, options_.settings);
        return make(connection, {operationNamed(name), arguments});
    }

    Json make(Connection& connection, const Step& step) {
        Json result;
        connection.exchange(step.operation.fullName(), [&](TavIDL::ProtocolPointer protocol) {
            result = call(step.operation, protocol, step.arguments);
        });
        if (output.json) {
            printJson({{"operation", step.operation.fullName()}, {"result", result}});
        } else {
            print(tinted(Tint::Good, step.operation.fullName()) +
                  (result.is_object() ? "\n" : "  ") + described(result));
        }
        if (options_.expectTrue && result == false && status_ == 0) {
            status_ = static_cast<int>(Exit::False);
        }
        return result;
    }

    // The EMP and the callback service are where the broker is.
    Address beside(const Json& info, const char* field) const {
        const int port = info[field];
        if (port < 1 || port > 65535) {
            throw Failure(Exit::Broken,
                          "the broker at " + broker_.text() + " gives " + field + " as " +
                              std::to_string(port) + ", which is no port",
                          "look into the broker");
        }
        return {broker_.path.empty() ? broker_.host : "127.0.0.1", port, ""};
    }

    std::unique_ptr<Server> listen(const Json& info) {
        if (info["callbackServicePort"] == 0) {
            note("no events: the broker names no port for them");
            return nullptr;
        }
        if (options_.settings.tls && options_.settings.cert.empty()) {
            note("no events: with --tls these need --cert and --key");
            return nullptr;
        }
        return serveEvents(beside(info, "callbackServicePort"), options_.settings);
    }

    void runSteps(const Json& info) {
        if (steps_.empty()) {
            return;
        }
        EmpConnection emp(beside(info, "empServicePort"), options_.settings);
        for (const Step& step : steps_) {
            if (stop::requested()) {
                return;
            }
            make(emp.get(), step);
            if (status_ != 0) {
                return;  // a false reply where true was expected
            }
        }
    }

    void fail(const Failure& failure) {
        if (!stop::requested()) {
            printError(static_cast<int>(failure.status), failure.line());
        }
        if (status_ == 0) {
            status_ = static_cast<int>(failure.status);
        }
    }

    const Options& options_;
    const Address broker_;
    const std::string credential_;
    const std::vector<Step> steps_;
    bool waited_ = false;
    int status_ = 0;
};

}  // namespace

void addOpen(CLI::App& app, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(
        app, "open", "Open an EMP at the broker, call it, show its events, close it",
        "tavctl open 127.0.0.1:9090 thermometer 1.0 --run Open --run Execute cmd=read --run Close");
    verb->add_option("address", options->address, "Where the broker serves")
        ->required()
        ->option_text("ADDRESS");
    verb->add_option("name", options->name, "Name of the EMP")->required()->option_text("NAME");
    verb->add_option("version", options->version, "Its version")
        ->required()
        ->option_text("VERSION");
    verb->add_option("--run", options->words,
                     "Call an operation of the EMP. Name, version and credential are known; what "
                     "is left out else is sent as 0, false or empty. Without any, the EMP stays "
                     "open until a signal comes")
        ->option_text("OPERATION [KEY=VALUE]... ...");
    verb->add_flag("--stay", options->stay, "After the calls, stay open until a signal comes");
    verb->add_flag("--expect-true", options->expectTrue,
                   "End with status 1 on the first false reply");
    addClientOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
    verb->callback([options, &run] { run = [options] { return Session(*options).run(); }; });
}
