// The product's automation server, as its type library publishes it: the
// class and the one custom interface that the module starts at load and
// stops at unload. On the host's platform the server is a separate COM
// component; here the host stand-in plays it (host/session/com.cpp), and tests can
// make it absent or make its start fail.
#pragma once

// {6E0C4A5B-2F3D-4B71-9A4E-5D1C7B8E2A10}
inline constexpr CLSID CLSID_VantryAutomation = {
    0x6E0C4A5B, 0x2F3D, 0x4B71, {0x9A, 0x4E, 0x5D, 0x1C, 0x7B, 0x8E, 0x2A, 0x10}};
// {6E0C4A5B-2F3D-4B71-9A4E-5D1C7B8E2A11}
inline constexpr IID IID_IVantryAutomation = {
    0x6E0C4A5B, 0x2F3D, 0x4B71, {0x9A, 0x4E, 0x5D, 0x1C, 0x7B, 0x8E, 0x2A, 0x11}};

struct IVantryAutomation : IDispatch {
  // The first method after the automation base operations: start serving.
  virtual HRESULT Start() = 0;
  // The second: stop serving.
  virtual HRESULT Stop() = 0;

 protected:
  ~IVantryAutomation() = default;
};
