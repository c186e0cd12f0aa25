// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_APPCONNECTORINTERFACE_H
#define TOLVANEV_APPCONNECTORINTERFACE_H

#include <memory>
#include <string>

// A link to one engine process, as the engine controller sees it. It moves blocks of bytes and
// knows nothing of frames.
class AppConnectorInterface {
  public:
    virtual bool initialize() = 0;
    virtual bool finalize() = 0;
    virtual int write(const char* block, unsigned int size) = 0;
    virtual int read(char* block, unsigned int size, unsigned int timeout) = 0;
    virtual void launch(const std::string& app, const std::string& arg) = 0;

  protected:
    // Not virtual: a connector is always destroyed as what it is, by the shared pointer that was
    // made from the concrete object.
    ~AppConnectorInterface() = default;
};

using AppConnectorPtr = std::shared_ptr<AppConnectorInterface>;

#endif
