#ifndef VELLUMENT_TOOL_DEMO_ROAD_H
#define VELLUMENT_TOOL_DEMO_ROAD_H

// The parts of `vellument demo`: the numbered steps it prints, and the road against the filing
// service that follows the filing itself.

#include <ostream>
#include <string>

class CVellument;

namespace cli {

class FilingService;

class Steps {
public:
    explicit Steps(std::ostream& out) : out_(out) {}
    void say(const std::string& text) { out_ << ++number_ << ". " << text << "\n"; }
    void detail(const std::string& text) { out_ << "   " << text << "\n"; }

private:
    std::ostream& out_;
    int number_ = 0;
};

// What the demo's filing is known by on the server.
struct DemoFiling {
    std::string company;  // the company directory, library form, with its trailing backslash
    std::string file;     // the vellument, library form
    std::string ein;
    std::string form;
    std::string year;
};

// The service's copies of the filing, one line each.
void tell_service_copies(const FilingService& service, const DemoFiling& filing, Steps& steps);

// The road after the e-filed save: the service marks a copy replaceable, deletes one, loses one and
// knows it again, and another workstation stores a newer version. Each step syncs the vellument as
// the application does at start-up and says what the trail gained.
void walk_server_road(const FilingService& service, const DemoFiling& filing, Steps& steps);

} // namespace cli

#endif
