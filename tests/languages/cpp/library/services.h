#ifndef TESTS_LANGUAGES_SERVICES_H
#define TESTS_LANGUAGES_SERVICES_H

// The services of libTavIDL.
#include <TavIDL/TavIDL.h>

#endif
