// The version of the plugin and of the programs that are built with it. CMake reads it from here.
#ifndef PLUGIN_VERSION_H_
#define PLUGIN_VERSION_H_

#define KIV_VERSION "6.0.3"

#endif  // PLUGIN_VERSION_H_
