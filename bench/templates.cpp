#include "calls.h"

#include "templates/TavBroker.h"
#include "templates/TavEmp.h"
#include "templates/TavEmpEvent.h"

namespace bench {

namespace {

struct Names {
    using Info = templates::ConnectionInfo;
    using List = templates::ParamList;
    using BrokerIf = templates::TavBrokerIf;
    using EmpIf = templates::TavEmpIf;
    using EventIf = templates::TavEmpEventIf;
    template <typename Protocol>
    using ClientProtocol = Protocol;
    template <typename Protocol>
    using BrokerClient = templates::TavBrokerClientT<Protocol>;
    template <typename Protocol>
    using EmpClient = templates::TavEmpClientT<Protocol>;
    template <typename Protocol>
    using EventClient = templates::TavEmpEventClientT<Protocol>;
    template <typename Protocol>
    using BrokerProcessor = templates::TavBrokerProcessorT<Protocol>;
    template <typename Protocol>
    using EmpProcessor = templates::TavEmpProcessorT<Protocol>;
    template <typename Protocol>
    using EventProcessor = templates::TavEmpEventProcessorT<Protocol>;
};

}  // namespace

const Contestant kTemplates = {"templates", makeCaller<Names>, makeProcessor<Names>};

}  // namespace bench
