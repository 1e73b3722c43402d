#pragma once

/// What the system requires of the host: data, output, files and the command parser.

#include "contracts/HostData.h"
#include "contracts/HostFiles.h"
#include "contracts/HostOutput.h"
#include "contracts/Parser.h"
