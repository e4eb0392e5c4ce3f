// bus.h - the message bus of the simulated device, and services on it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tq_test {

// A program that runs until its scope ends.
class Process {
  public:
    explicit Process(const std::vector<std::string>& command);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Ends it at once; it is gone when this returns.
    void kill();
    void signal(int number) const;
    void wait_for_output() const;

  private:
    pid_t pid_;
    int output_;
};

// Ends the broker that the device has booted with, or another one.
void stop_bus();

// A broker in place of the device's; connections can be made once it is there.
class Broker {
  public:
    Broker();

    void kill() { process_.kill(); }

  private:
    Process process_;
};

// Objects on the bus, as bus_service.cpp describes them: {"fm.ac", "bwctrl=status:4"}.
class BusService {
  public:
    explicit BusService(const std::vector<std::string>& objects);

    // The calls since the last take(), a line each.
    std::vector<std::string> take();
    // Until one has come.
    void wait_for_call() const;
    void kill() { process_.kill(); }
    void signal(int number) const { process_.signal(number); }

  private:
    std::string record_;
    Process process_;
};

// How many connections to the bus this process has.
int bus_connections();

}  // namespace tq_test
