// The page that shows a report: one file, which loads nothing.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// Throws InputError for a file that a page cannot take the place of: a directory, a device, or
// what is no page; std::system_error where its directory cannot be written. Writes nothing.
void checkPagePlace(const std::string& file);

// Puts a page with the data there, which are those of dataText(). What is there stays as it is
// until the new page is whole. Throws as checkPagePlace(), and std::system_error for a page that
// cannot be written.
void writePage(const std::string& file, std::string_view data);

}  // namespace Agent
