@0x9d9d3b1a52c7c4e1;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("peers::capnproto");

interface TavBroker {
    execute @0 (caller :Int32, command :Text, first :Text, second :Text, third :Text,
                fourth :Text) -> (result :Text);
}
