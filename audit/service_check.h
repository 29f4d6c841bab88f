// service_check.h - asks each service of this build one question that changes nothing, and tells what
// answered.
#pragma once

#include <functional>
#include <string>

namespace brickfall {

struct ServiceAnswer {
    std::string service;
    std::string url;
    bool good = false;  // it is there, and answers as that service does
    std::string said;   // of strangers
};

// One after the other, each told as it comes; up to a quarter of a minute for one that is silent. True when
// all were good. Network; no lock.
bool CheckServices(const std::function<void(const ServiceAnswer&)>& tell);

// What this build is made for, in lines: the names and the addresses that are paid.
std::string DeploymentText();

}  // namespace brickfall
