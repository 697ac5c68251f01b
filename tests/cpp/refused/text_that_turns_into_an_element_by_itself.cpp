// Refused: conversion|no viable
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Element element = "p";
#else
  const tarn::Element element("p");
#endif
  return element ? 0 : 1;
}
