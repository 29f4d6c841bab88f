// desktop.h - the machine's desktop around the program: other programs' windows, programs, web addresses.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace brickfall {

// Whether a window could be opened here at all: the display that the environment names takes connections. To
// be asked before Platform is made, which ends the program where there is none. Blocks for at most a second
// or so.
bool DisplayAvailable();

// Makes this process the one that the other functions find under a window class name, until its end. False
// when another process of this user has that name. `raise` runs on the main thread each time that somebody
// asks for the window to be raised; it needs the message loop.
bool ClaimWindowClass(std::string_view window_class, std::function<void()> raise);

// Asks the process that has claimed the class to bring its window to the front. True when there is one.
// Blocks for at most a second; any thread.
bool RaiseWindowOfClass(std::string_view window_class);

std::string ExecutableFolder();  // absolute, UTF-8, no slash at the end

// Starts a program, detached, in a folder. False when it cannot be started. Any thread.
bool StartProgram(const std::string& path, const std::string& folder);

void CopyText(std::string_view text);  // to the clipboard; main thread only

class FolderWatch {
  public:
    virtual ~FolderWatch() = default;  // ends it
};

// `changed` runs on the main thread, from the message loop, each time that something in the folder has come,
// gone or got other rights; nobody looks in between. nullptr where there is no such folder.
std::unique_ptr<FolderWatch> WatchFolder(const std::string& folder, std::function<void()> changed);

// Opens a web address in the user's browser.
void OpenAddress(const std::string& url);

}  // namespace brickfall
