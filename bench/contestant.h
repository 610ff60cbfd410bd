#ifndef BENCH_CONTESTANT_H
#define BENCH_CONTESTANT_H

#include <cstddef>
#include <memory>
#include <string>

#include <thrift/TProcessor.h>
#include <thrift/protocol/TProtocol.h>
#include <thrift/transport/TBufferTransports.h>

// Three contestants call the same eight operations with the same values: this library
// and the Thrift compiler's two C++ outputs. Everything else in this directory uses them
// only through this header.
namespace bench {

using apache::thrift::TProcessor;
using apache::thrift::protocol::TProtocol;

// The static ones know the type of their transport at compile time: TBinaryProtocolT and
// TCompactProtocolT of TBufferBase. `derived` is a program's own protocol class, derived from the
// binary one: libraries that check a protocol's type do not know it.
enum class Encoding { binary, compact, staticBinary, staticCompact, json, derived };
constexpr Encoding kEncodings[] = {Encoding::binary,       Encoding::compact,
                                   Encoding::staticBinary, Encoding::staticCompact,
                                   Encoding::json,         Encoding::derived};
const char* nameOf(Encoding encoding);
std::shared_ptr<TProtocol> makeProtocol(
    Encoding encoding, std::shared_ptr<apache::thrift::transport::TBufferBase> transport);

enum class Service { broker, emp, event };
enum class Operation {
    brokerOpenEmp,
    brokerExecute,
    brokerCloseEmp,
    empOpen,
    empClose,
    empExecute,
    empExecuteWithParamList,
    eventCallback
};
constexpr Operation kOperations[] = {Operation::brokerOpenEmp,
                                     Operation::brokerExecute,
                                     Operation::brokerCloseEmp,
                                     Operation::empOpen,
                                     Operation::empClose,
                                     Operation::empExecute,
                                     Operation::empExecuteWithParamList,
                                     Operation::eventCallback};
const char* nameOf(Operation operation);
Service serviceOf(Operation operation);

// The two halves of a client's call. A one-way call receives nothing.
class Caller {
public:
    virtual ~Caller() = default;
    virtual void send(Operation operation) = 0;
    virtual void receive(Operation operation) = 0;
};

// All strings that a call passes and gets back have `length` bytes.
struct Contestant {
    const char* name;
    std::unique_ptr<Caller> (*makeCaller)(Encoding encoding, std::size_t length,
                                          std::shared_ptr<TProtocol> input,
                                          std::shared_ptr<TProtocol> output);
    std::shared_ptr<TProcessor> (*makeProcessor)(Service service, Encoding encoding,
                                                 std::size_t length);
};

extern const Contestant kOurs;
extern const Contestant kGenerated;
extern const Contestant kTemplates;
const Contestant* const kContestants[] = {&kOurs, &kGenerated, &kTemplates};

// The name of a call in the programs' output.
std::string nameOf(const Contestant& contestant, Operation operation, Encoding encoding,
                   std::size_t length);

}  // namespace bench

#endif
