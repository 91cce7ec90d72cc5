// pppoeplusctl: the operator's tool for a running pppoeplusd (management
// commands, diagnostic shell, platform events). The logic is in ctl.cpp; this
// file gives it the daemon's sockets and this namespace's interface names.
#include <net/if.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/cmd_proto.h"
#include "tools/ctl.h"

namespace {

class SocketTransport : public ctl::Transport {
  public:
    explicit SocketTransport(const ctl::Endpoints& ep) : ep_(ep) {}

    int32_t call(const cmdp::CallRequest& req, cmdp::CallReply& reply, std::string& error) override {
        return ep_.timeoutMs > 0 ? cmdp::call(ep_.command, req, reply, error, ep_.timeoutMs)
                                 : cmdp::call(ep_.command, req, reply, error);
    }
    int32_t shell(const cmdp::ShellRequest& req, cmdp::ShellReply& reply, std::string& error) override {
        return ep_.timeoutMs > 0 ? cmdp::shell(ep_.shell, req, reply, error, ep_.timeoutMs)
                                 : cmdp::shell(ep_.shell, req, reply, error);
    }
    int32_t event(const cmdp::EventRequest& req, cmdp::EventReply& reply, std::string& error) override {
        return ep_.timeoutMs > 0 ? cmdp::event(ep_.event, req, reply, error, ep_.timeoutMs)
                                 : cmdp::event(ep_.event, req, reply, error);
    }
    int32_t control(const std::string& req, std::string& reply, std::string& error) override {
        return ep_.timeoutMs > 0 ? cmdp::control(ep_.control, req, reply, error, ep_.timeoutMs)
                                 : cmdp::control(ep_.control, req, reply, error);
    }

  private:
    ctl::Endpoints ep_;
};

class NetnsResolver : public ctl::Resolver {
  public:
    uint32_t unitOf(const std::string& name) override {
        if (name.empty() || name.size() >= IF_NAMESIZE) return 0;
        return ::if_nametoindex(name.c_str());
    }
    std::string nameOf(uint32_t unit) override {
        char buf[IF_NAMESIZE] = {};
        if (unit == 0 || ::if_indextoname(unit, buf) == nullptr) return "";
        return buf;
    }
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string root = ctl::defaultRoot(std::getenv("PPPOEPLUS_ROOT"), ctl::isSocket);
    NetnsResolver resolver;
    auto factory = [](const ctl::Endpoints& ep) { return std::make_unique<SocketTransport>(ep); };
    int rc = ctl::run(args, root, factory, resolver, std::cout, std::cerr);
    std::cout.flush();
    return rc;
}
