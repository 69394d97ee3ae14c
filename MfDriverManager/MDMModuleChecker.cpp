#include "MDMModuleChecker.h"

MDMModuleChecker::MDMModuleChecker() = default;

MDMModuleChecker::~MDMModuleChecker() = default;
