#ifndef CDXTESTS_E2E_ENDTOEND_H
#define CDXTESTS_E2E_ENDTOEND_H

#include "Application.h"
#include "Vehicle.h"

#include <cdxservice/Server.h>

#include <gtest/gtest.h>

namespace cdxtest {

/// A service on a free port, the vehicle's side of it, and an application that is not yet started.
class EndToEnd : public ::testing::Test {
protected:
    EndToEnd() { m_service.start(); }

    Vehicle vehicle() const { return Vehicle(m_service.port()); }
    void startApplication() { m_application.start(m_service.port()); }
    /// Starts the application and waits until it was told of `client`.
    void startWith(const std::string& client) {
        vehicle().announce(client);
        startApplication();
        told("announced", client);
    }
    Told told(const std::string& what, const std::string& client, std::size_t count = 1) {
        return m_application.recorder().waitFor(what, client, count);
    }
    std::size_t timesTold(const std::string& what, const std::string& client) {
        return m_application.recorder().count(what, client);
    }
    zepclient::CdxMoroClient& client() { return m_application.client(); }

    cdxservice::Server m_service;
    Application m_application;
};

} // namespace cdxtest

#endif
