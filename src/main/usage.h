#pragma once

/// Writes the usage text, with every command's help, to standard error.
void usage();
