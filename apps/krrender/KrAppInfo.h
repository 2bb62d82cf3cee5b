#pragma once

#include <string>

struct KrAppRobot;

/// The text of --info: the links as a tree with their joints, limits and triangle counts. UTF-8, needs no OpenGL.
std::string krAppInfo(const KrAppRobot& robot);
