// Where browsers come to.
#pragma once

#include <string>

// A socket that listens already, as the system hands it to a service: whoever starts this program opens it where browsers come
// from, and this program may be elsewhere.
struct stHandedOver
{
    int nSocket = -1; // none
    std::string strAddress;
    std::string strError; // what was handed over is no such socket
};
stHandedOver TakeHandedOver();

// Empty, or why the text is none that can be listened to.
std::string CheckAddress(const std::string& strText);

// Whether only this machine reaches an address that is listened to.
bool IsLoopback(const std::string& strAddress);

// Whether it stands for all addresses of this machine.
bool IsAnyAddress(const std::string& strAddress);
