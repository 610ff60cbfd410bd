#include "calls.h"

#include <TavIDL/TavIDL.h>

namespace bench {

namespace {

struct Names {
    using Info = ::ConnectionInfo;
    using List = ::ParamList;
    using BrokerIf = ::TavBrokerIf;
    using EmpIf = ::TavEmpIf;
    using EventIf = ::TavEmpEventIf;
    template <typename>
    using ClientProtocol = TProtocol;
    template <typename Protocol>
    using BrokerClient = ::TavBrokerClient;
    template <typename Protocol>
    using EmpClient = ::TavEmpClient;
    template <typename Protocol>
    using EventClient = ::TavEmpEventClient;
    template <typename Protocol>
    using BrokerProcessor = ::TavBrokerProcessor;
    template <typename Protocol>
    using EmpProcessor = ::TavEmpProcessor;
    template <typename Protocol>
    using EventProcessor = ::TavEmpEventProcessor;
};

}  // namespace

const Contestant kOurs = {"ours", makeCaller<Names>, makeProcessor<Names>};

}  // namespace bench
