#include "calls.h"

#include "generated/TavBroker.h"
#include "generated/TavEmp.h"
#include "generated/TavEmpEvent.h"

namespace bench {

namespace {

struct Names {
    using Info = generated::ConnectionInfo;
    using List = generated::ParamList;
    using BrokerIf = generated::TavBrokerIf;
    using EmpIf = generated::TavEmpIf;
    using EventIf = generated::TavEmpEventIf;
    template <typename>
    using ClientProtocol = TProtocol;
    template <typename Protocol>
    using BrokerClient = generated::TavBrokerClient;
    template <typename Protocol>
    using EmpClient = generated::TavEmpClient;
    template <typename Protocol>
    using EventClient = generated::TavEmpEventClient;
    template <typename Protocol>
    using BrokerProcessor = generated::TavBrokerProcessor;
    template <typename Protocol>
    using EmpProcessor = generated::TavEmpProcessor;
    template <typename Protocol>
    using EventProcessor = generated::TavEmpEventProcessor;
};

}  // namespace

const Contestant kGenerated = {"generated", makeCaller<Names>, makeProcessor<Names>};

}  // namespace bench
