#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/CSClient.h"
#include "tests/model/StepRunner.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

class LineLog;
class LoggingTransport;

/// Performs steps with the real engine, and logs what happens in the words of the model. The calling thread is application
/// and worker in one. Another thread performs the steps of a `MEANWHILE`, and the calling thread waits for it, so that
/// the order is always the same. Standard output and error are caught.
class EngineUnderTest : public StepRunner {
  public:
    EngineUnderTest(std::uint32_t simulatorId, std::uint32_t options);
    ~EngineUnderTest() override;

    /// Applies the steps on this thread. Its sleeps take no time.
    void applyAll(const std::vector<Step>& steps);

    std::string answers(const std::vector<std::string>& names) const override;
    std::string tables() const override;
    bool holdsAnyLock() const { return engine->holdsAnyLock(); }

  protected:
    std::optional<std::uint32_t> perform(const Step& step) override;
    void performOnAnotherThread(const std::vector<Step>& steps) override;
    bool holdsTables() const override { return engine->holdsParameterMutex(); }
    bool holdsChange() const override { return engine->holdsConnectionMutex(); }

  private:
    class Client;
    class Recorder;
    struct Engine : public OpenEngine {
        using OpenEngine::OpenEngine;

        /// What `forceCloseConnection` does when the change of another thread takes too long.
        void closeAfterTheChange() {
            engineParts().connection.requestClose();
            engineParts().connection.closeIfRequested();
        }
    };

    bool isConnected() const;
    void receive(const std::string& body);
    void lose(std::uint32_t loss);

    std::unique_ptr<Client> client;
    Engine* engine;                   ///< Owned by the client.
    LoggingTransport* transport;      ///< Owned by the engine.
    std::vector<Recorder> recorders;  ///< The engine calls them in the order of their addresses.
    std::unique_ptr<LineLog> outLog;
    std::unique_ptr<LineLog> errLog;
};

/// Runs `steps`. Meanwhile, the sleeps of this thread take no time: each calls `onSleep`. Each poll for a lock that
/// another thread holds calls `onPoll`.
void runWithoutSleeping(const std::function<void()>& onSleep, const std::function<void()>& onPoll,
                        const std::function<void()>& steps);

}  // namespace com_tesk::test
