// Calls a peer's services in batches, with libTavIDLHost: see crosstest.py.
//
//     batch PROTOCOL TRANSPORT BROKERPORT EMPPORT
//
// Writes a line "case = outcome" for each case, as the peers do.

#include <TavIDL/host/Batch.h>

#include <functional>
#include <future>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace {

void report(const std::string& what, const std::function<std::string()>& outcome) {
    std::cout << what << " = ";
    try {
        std::cout << outcome() << std::endl;
    } catch (const std::exception& failure) {
        std::cout << failure.what() << std::endl;
    }
}

std::future<std::string> echo(TavIDL::EmpBatch& batch, const std::string& cmd,
                              const std::string& param1) {
    return batch.Execute(7, cmd, param1, "", "", "");
}

// The EMP returns a call's parameters as its result, so each result shows which call it answers.
std::string ordered(TavIDL::RemoteEmp& emp, const std::vector<std::string>& commands) {
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (std::size_t i = 0; i < commands.size(); ++i) {
        results.push_back(echo(batch, commands[i], std::to_string(i)));
    }
    batch.run();
    for (std::size_t i = 0; i < commands.size(); ++i) {
        if (results[i].get() != "7|" + commands[i] + "|" + std::to_string(i) + "|||") {
            return "not in order";
        }
    }
    return "in order";
}

std::string differentOperations(TavIDL::RemoteEmp& emp) {
    TavIDL::EmpBatch batch(emp);
    auto open = batch.Open(2147483647, "camera", "2.1", "key");
    auto execute = echo(batch, "echo", "a");
    auto close = batch.Close(3);
    batch.run();
    const std::string opened = open.get() ? "true, " : "false, ";
    return opened + execute.get() + ", " + std::to_string(close.get());
}

// Reports an exception without its text, which differs from language to language.
std::string outcomeOf(std::future<std::string>& result) {
    try {
        return result.get();
    } catch (const apache::thrift::TApplicationException&) {
        return "refused";
    }
}

std::string refusedCall(TavIDL::RemoteEmp& emp) {
    TavIDL::EmpBatch batch(emp);
    auto before = echo(batch, "echo", "before");
    auto refused = echo(batch, "fail", "");
    auto after = echo(batch, "echo", "after");
    batch.run();
    return outcomeOf(before) + ", " + outcomeOf(refused) + ", " + outcomeOf(after);
}

std::string longResults(TavIDL::RemoteBroker& broker) {
    TavIDL::BrokerBatch batch(broker);
    std::vector<std::future<std::string>> results;
    results.reserve(50);
    for (int i = 0; i < 50; ++i) {
        results.push_back(batch.Execute(0, "long", "", "", "", ""));
    }
    batch.run();
    std::size_t bytes = 0;
    for (auto& result : results) {
        bytes += result.get().size();
    }
    return std::to_string(bytes) + " bytes";
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 5) {
        throw std::invalid_argument("usage: batch PROTOCOL TRANSPORT BROKERPORT EMPPORT");
    }
    TavIDL::Settings settings;
    settings.protocol =
        argv[1] == std::string("compact") ? TavIDL::Settings::Compact : TavIDL::Settings::Binary;
    settings.framed = argv[2] == std::string("framed");
    TavIDL::RemoteBroker broker(std::string(":") + argv[3], settings);
    TavIDL::RemoteEmp emp(std::string(":") + argv[4], settings);

    report("Batch of 1000 calls",
           [&] { return ordered(emp, std::vector<std::string>(1000, "echo")); });
    report("Batch of three operations", [&] { return differentOperations(emp); });
    report("Batch with a call that is refused", [&] { return refusedCall(emp); });
    report("Batch of 50 long results", [&] { return longResults(broker); });
    report("Batch whose first call is answered last", [&] {
        return ordered(emp, {"later", "echo"});
    });
} catch (const std::exception& failure) {
    std::cerr << "batch: " << failure.what() << '\n';
    return 1;
}
