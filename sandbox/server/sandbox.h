// sandbox.h - every remote service of the game on this machine, behind one TLS port, told apart by host name.
// The program brickfall-sandbox and the tests run it through this interface. All operations may be called
// from any thread while it serves.
#pragma once

#include <memory>
#include <string>

#include "sandbox/server/operations.h"

namespace brickfall::sandbox {

class HttpsServer;

class Sandbox : public Operations {
  public:
    explicit Sandbox(Options options);
    ~Sandbox();  // stops

    bool Start(std::string& error);
    void Stop();

    int Port() const;
    std::string ConnectTo() const;  // for the deployment's route: "::127.0.0.1:PORT"
    std::string CaFile() const;     // PEM

    // Returns once every request sent before the call has been dealt with, even where its client has gone.
    // Not beside Start or Stop.
    void WaitUntilIdle() const;

  private:
    const std::unique_ptr<HttpsServer> server_;
};

}  // namespace brickfall::sandbox
