// thrown.h - what a call throws, as text.
#pragma once

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

// The text of the exception, "" when the call ends well. One of another type goes on its way.
template <class Failure = std::exception, class Call>
std::string thrownBy(Call&& call) {
  try {
    call();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "";
}

// What the call says, standard error and exception together; "" when it ends well.
template <class Call>
std::string toldBy(Call&& call) {
  testing::internal::CaptureStderr();
  const std::string thrown = thrownBy(call), told = testing::internal::GetCapturedStderr();
  return thrown.empty() ? "" : told + thrown;
}
