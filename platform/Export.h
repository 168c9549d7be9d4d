// What a shared library of this project exports: everything else in it is hidden.
//
// On a class it exports the members and, just as important, lets the host's copy of the class count
// as the same type as the library's, also in a host that is compiled with -fvisibility=hidden.
#pragma once

#define QX_EXPORT __attribute__((visibility("default")))
