#include "support/web_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

LoopbackPort::LoopbackPort(bool listening) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    const bool bound = bind(fd, plain, size) == 0 && getsockname(fd, plain, &size) == 0;
    if (!bound || (listening && listen(fd, 16) != 0)) throw std::runtime_error("no port on loopback");
    number = ntohs(address.sin_port);
}

LoopbackPort::~LoopbackPort() {
    close(fd);
}

WebServer::WebServer(bool answersRanges) : port_(true) {
    const std::string& prefix = scratch_.path;
    std::string text = "daemon off; user root; error_log error.log; pid nginx.pid; events {} http {\n"
                       "log_format plain '$uri $status'; access_log access.log plain;\n";
    if (!answersRanges) text += "max_ranges 0;\n";
    // Without these nginx would use the directories of the host's own server.
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string(kind) + "_temp_path temp;\n";
    text += "server { listen 127.0.0.1:" + std::to_string(port_.number) +
            "; root files; location = /done { access_log off; return 204; } } }\n";
    writeWholeFile(prefix + "/nginx.conf", text);
    // nginx takes the listening port over, so it can be asked from this moment on, ready or not.
    fcntl(port_.fd, F_SETFD, 0);
    nginx_.reset(new Program({"env", "NGINX=" + std::to_string(port_.fd) + ";", "nginx", "-p", prefix, "-e",
                              "error.log", "-c", "nginx.conf"}));
    fcntl(port_.fd, F_SETFD, FD_CLOEXEC);
}

WebServer::~WebServer() {
    nginx_->signal(SIGTERM);
    nginx_->wait();
}

std::string WebServer::requests() const {
    // The server logs a request after its client has all bytes, but before it takes another one.
    Program({"curl", "-s", "--noproxy", "*", url() + "/done"}).wait();
    return readWholeFile(scratch_.path + "/access.log");
}
