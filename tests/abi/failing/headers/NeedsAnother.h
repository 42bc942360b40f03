#pragma once

// Does not include what declares std::string.
std::string gives();
