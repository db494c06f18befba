// Attribute files of sysfs and configfs: opened, used once and closed.
#pragma once

#include <fcntl.h>

#include <cstdint>

#include "core/descriptor.hpp"
#include "norv_file.h"

namespace norv {

// One opened attribute, closed at the end of the scope. A failed open is judged where the attribute is used.
class attribute {
  public:
    template <typename... values>
    attribute(uint32_t flags, const char* path_format, values... path_values) {
        status_ = norv_open_device(flags | O_CLOEXEC, file_.out(), path_format, path_values...);
    }

    // Writes a text with its NUL: the status of the open if that failed, else of the write.
    template <typename... values>
    uint32_t write(uint32_t maximum, const char* format, values... text_values) const {
        return status_ != NORV_STATUS_OK ? status_
                                         : norv_write_string(file_.get(), maximum, format, text_values...);
    }

    uint32_t status() const { return status_; }
    int32_t descriptor() const { return file_.get(); }

  private:
    scoped_descriptor file_;
    uint32_t status_ = NORV_STATUS_OK;
};

}  // namespace norv
