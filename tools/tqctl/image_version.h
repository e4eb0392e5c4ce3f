// image_version.h - the version of an image in flash.
#pragma once

#include <tq/mtd.h>

#include "command.h"

namespace tqctl {

// On one line, with what is not printable as \xNN.
struct ImageVersion {
    char text[4 * TQ_IMAGE_VERSION_SIZE + 1];
};

// Of primary, backup or boot-loader. Says why where there is none.
ExitCode read_image_version(const Context& context, const char* image, ImageVersion& version);

}  // namespace tqctl
