// Failures as values.
#pragma once

#include <optional>
#include <string>

/// An error code in snake_case ("filevault_on"), or nothing on success.
using KioskError = std::optional<std::string>;
