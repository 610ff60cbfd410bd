#ifndef TAVCTL_VERBS_H
#define TAVCTL_VERBS_H

#include <cstddef>
#include <string>
#include <vector>

#include "options.h"

// What each verb gets from the command line, and what it does with it. The functions return the
// exit status.

namespace tavctl {

struct DescribeOptions {
    std::string wanted;  // an operation, a service, a record, or everything if it is empty
    bool thrift = false;
};
int describe(const DescribeOptions& options);

struct CallOptions {
    Settings settings;
    Credential credential;
    bool expectTrue = false;
    std::vector<std::string> words;
};
int makeCall(const CallOptions& options);

struct OpenOptions {
    Settings settings;
    Credential credential;
    std::vector<std::string> words;  // address, name and version
    std::vector<std::string> calls;
    bool stay = false;
    bool expectTrue = false;
};
int openEmp(const OpenOptions& options);

struct ListenOptions {
    Settings settings;
    ListenAddress address;
    int count = 0;
    double timeout = 0;
};
int listen(const ListenOptions& options);

struct ProbeOptions {
    Settings settings;
    std::vector<std::string> words;  // the address
    bool tryText = false;
};
int probe(const ProbeOptions& options);

struct SpyOptions {
    Settings settings;
    std::string listen;
    std::string target;
    std::string file;
    bool follow = false;
};
int spy(const SpyOptions& options);

struct DecodeOptions {
    Settings settings;
    std::string path = "-";
    std::string format = "auto";
    bool sequence = false;
};
int decode(const DecodeOptions& options);

struct ServeOptions {
    Settings settings;
    ListenAddress address;
    std::string service;
    std::vector<std::string> replies;
    std::vector<std::string> failures;
    std::vector<std::string> delays;
};
int serve(const ServeOptions& options);

struct BenchOptions {
    Settings settings;
    Credential credential;
    std::vector<std::string> words;
    std::size_t connections = 1;
    std::size_t batch = 1;
    double seconds = 10;
};
int bench(const BenchOptions& options);

struct EncodeOptions {
    Settings settings;
    Credential credential;
    std::vector<std::string> words;
    std::string format = "auto";
};
int encode(const EncodeOptions& options);

}  // namespace tavctl

#endif
