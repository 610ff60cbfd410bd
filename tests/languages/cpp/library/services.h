#ifndef TESTS_LANGUAGES_SERVICES_H
#define TESTS_LANGUAGES_SERVICES_H

// The services as libTavIDL has them.
#include <TavIDL/TavIDL.h>

#endif
