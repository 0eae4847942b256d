// Who looks at the live page.
#pragma once

#include "Web/Frames.h"

#include <functional>
#include <memory>
#include <string>

// One browser, as the page's owner knows it.
class IBrowser
{
public:
    virtual ~IBrowser() = default;

    // What the page says, a line of JSON. False: nonsense, and the end of this connection.
    virtual bool OnText(const std::string& strText) = 0;

    // What is to go to the page next; none: nothing for now. Asked for only when what went before has left.
    virtual tFrame NextFrame() = 0;
};

typedef std::function<std::unique_ptr<IBrowser>()> tMakeBrowser;
