// Compiles with a libthrift that uses Boost's pointers, like all before 0.11.

#include <TavIDL/TavIDL.h>
#include <boost/shared_ptr.hpp>

#include <iostream>

int main() {
    const boost::shared_ptr<TavEmpEventIf> handler;
    const TavEmpEventProcessor processor(handler);
    const TavEmpEventClient client(boost::shared_ptr<apache::thrift::protocol::TProtocol>{});
    std::cout << client.getInputProtocol().use_count() << " users\n";
}
