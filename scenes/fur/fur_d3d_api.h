// The two Direct3D APIs the fur test shares one device implementation
// between (Windows only): for each, the names of its types and constants,
// its log lines, and small helpers for the calls whose shape differs
// (device creation, shader creation and binding, the blend description,
// the viewport, mapping). The helpers make no device calls beyond the ones
// they wrap, so the descriptions they build can be checked without one.
#pragma once

#include <windows.h>
#include <d3d10.h>
#include <d3d11.h>
#include <dxgi.h>

#include <vector>

#include "scenes/fur/fur_d3d_tables.h"

// The types, constants and blend factors that both APIs name alike, P being
// D3D10 or D3D11: ID3D10Buffer / ID3D11Buffer, D3D10_USAGE_DEFAULT /
// D3D11_USAGE_DEFAULT and so on (their values agree, their types do not).
#define ARD_D3D_SHARED_NAMES(P)                                                  \
    using Device = I##P##Device;                                                 \
    using Texture2D = I##P##Texture2D;                                           \
    using Buffer = I##P##Buffer;                                                 \
    using RenderTargetView = I##P##RenderTargetView;                             \
    using DepthStencilView = I##P##DepthStencilView;                             \
    using ShaderResourceView = I##P##ShaderResourceView;                         \
    using InputLayout = I##P##InputLayout;                                       \
    using VertexShader = I##P##VertexShader;                                     \
    using PixelShader = I##P##PixelShader;                                       \
    using BlendState = I##P##BlendState;                                         \
    using DepthStencilState = I##P##DepthStencilState;                           \
    using RasterizerState = I##P##RasterizerState;                               \
    using SamplerState = I##P##SamplerState;                                     \
    using Texture2DDesc = P##_TEXTURE2D_DESC;                                    \
    using BufferDesc = P##_BUFFER_DESC;                                          \
    using SubresourceData = P##_SUBRESOURCE_DATA;                                \
    using BlendDesc = P##_BLEND_DESC;                                            \
    using DepthStencilDesc = P##_DEPTH_STENCIL_DESC;                             \
    using RasterizerDesc = P##_RASTERIZER_DESC;                                  \
    using SamplerDesc = P##_SAMPLER_DESC;                                        \
    using InputElementDesc = P##_INPUT_ELEMENT_DESC;                             \
    using Viewport = P##_VIEWPORT;                                               \
    static constexpr auto kUsageDefault = P##_USAGE_DEFAULT;                     \
    static constexpr auto kUsageImmutable = P##_USAGE_IMMUTABLE;                 \
    static constexpr auto kUsageDynamic = P##_USAGE_DYNAMIC;                     \
    static constexpr auto kUsageStaging = P##_USAGE_STAGING;                     \
    static constexpr UINT kBindVertexBuffer = P##_BIND_VERTEX_BUFFER;           \
    static constexpr UINT kBindIndexBuffer = P##_BIND_INDEX_BUFFER;             \
    static constexpr UINT kBindConstantBuffer = P##_BIND_CONSTANT_BUFFER;       \
    static constexpr UINT kBindShaderResource = P##_BIND_SHADER_RESOURCE;       \
    static constexpr UINT kBindRenderTarget = P##_BIND_RENDER_TARGET;           \
    static constexpr UINT kBindDepthStencil = P##_BIND_DEPTH_STENCIL;           \
    static constexpr UINT kCpuWrite = P##_CPU_ACCESS_WRITE;                      \
    static constexpr UINT kCpuRead = P##_CPU_ACCESS_READ;                        \
    static constexpr UINT kClearDepthStencil = P##_CLEAR_DEPTH | P##_CLEAR_STENCIL; \
    static constexpr auto kDepthWriteAll = P##_DEPTH_WRITE_MASK_ALL;             \
    static constexpr auto kDepthWriteNone = P##_DEPTH_WRITE_MASK_ZERO;           \
    static constexpr auto kLess = P##_COMPARISON_LESS;                           \
    static constexpr auto kNever = P##_COMPARISON_NEVER;                         \
    static constexpr auto kFillSolid = P##_FILL_SOLID;                           \
    static constexpr auto kCullNone = P##_CULL_NONE;                             \
    static constexpr auto kFilterAnisotropic = P##_FILTER_ANISOTROPIC;           \
    static constexpr auto kFilterLinear = P##_FILTER_MIN_MAG_MIP_LINEAR;         \
    static constexpr auto kAddressWrap = P##_TEXTURE_ADDRESS_WRAP;               \
    static constexpr auto kAddressClamp = P##_TEXTURE_ADDRESS_CLAMP;             \
    static constexpr auto kPerVertex = P##_INPUT_PER_VERTEX_DATA;                \
    static constexpr auto kBlendAdd = P##_BLEND_OP_ADD;                          \
    static constexpr UINT8 kWriteAll = P##_COLOR_WRITE_ENABLE_ALL;               \
    static constexpr float kMaxLod = P##_FLOAT32_MAX;                            \
    static P##_BLEND Factor(fur_d3d::BlendFactor f) {                            \
        switch (f) {                                                             \
            case fur_d3d::BlendFactor::kZero: return P##_BLEND_ZERO;             \
            case fur_d3d::BlendFactor::kOne: break;                              \
            case fur_d3d::BlendFactor::kSrcAlpha: return P##_BLEND_SRC_ALPHA;    \
            case fur_d3d::BlendFactor::kInvSrcAlpha: return P##_BLEND_INV_SRC_ALPHA; \
            case fur_d3d::BlendFactor::kInvSrcColor: return P##_BLEND_INV_SRC_COLOR; \
        }                                                                        \
        return P##_BLEND_ONE;                                                    \
    }

// Direct3D 10: every call goes to the device, which is also the "context".
struct D3D10Api {
    ARD_D3D_SHARED_NAMES(D3D10)
    using Context = ID3D10Device;
    static constexpr const char* kName = "Direct3D 10";
    static constexpr const char* kNoWindow = "Direct3D 10 window creation failed!";
    static constexpr const char* kInitFailed = "D3D10 initialization failed!";

    static fur_d3d::PassTable Passes() { return fur_d3d::TechniquePasses(); }

    // On `adapter`, or on the default one when it is null.
    static HRESULT Create(IDXGIAdapter* adapter, DXGI_SWAP_CHAIN_DESC* sc, IDXGISwapChain** swapChain, Device** device,
                          Context** context) {
        HRESULT hr = D3D10CreateDeviceAndSwapChain(adapter, D3D10_DRIVER_TYPE_HARDWARE, nullptr, 0, D3D10_SDK_VERSION,
                                                   sc, swapChain, device);
        if (SUCCEEDED(hr)) {
            // A reference of its own, so that the shared code releases the
            // context and the device alike.
            *context = *device;
            (*context)->AddRef();
        }
        return hr;
    }
    static HRESULT CreateShader(Device* device, const std::vector<unsigned char>& code, VertexShader** out) {
        return device->CreateVertexShader(code.data(), code.size(), out);
    }
    static HRESULT CreateShader(Device* device, const std::vector<unsigned char>& code, PixelShader** out) {
        return device->CreatePixelShader(code.data(), code.size(), out);
    }
    static void SetShaders(Context* context, VertexShader* vs, PixelShader* ps) {
        context->VSSetShader(vs);
        context->PSSetShader(ps);
    }
    static BlendDesc MakeBlend(const fur_d3d::BlendMode& m) {
        BlendDesc bd{};
        for (int i = 0; i < 8; ++i) {
            bd.BlendEnable[i] = m.enable;
            bd.RenderTargetWriteMask[i] = kWriteAll;
        }
        bd.SrcBlend = Factor(m.src);
        bd.DestBlend = Factor(m.dst);
        bd.BlendOp = kBlendAdd;
        bd.SrcBlendAlpha = Factor(m.srcAlpha);
        bd.DestBlendAlpha = Factor(m.dstAlpha);
        bd.BlendOpAlpha = kBlendAdd;
        return bd;
    }
    static Viewport MakeViewport(int width, int height) {
        return Viewport{0, 0, static_cast<UINT>(width), static_cast<UINT>(height), 0.0f, 1.0f};
    }
    static HRESULT MapDiscard(Context*, Buffer* buffer, void** data) {
        return buffer->Map(D3D10_MAP_WRITE_DISCARD, 0, data);
    }
    static void Unmap(Context*, Buffer* buffer) { buffer->Unmap(); }
    static HRESULT MapRead(Context*, Texture2D* texture, void** data, UINT* pitch) {
        D3D10_MAPPED_TEXTURE2D mapped{};
        const HRESULT hr = texture->Map(0, D3D10_MAP_READ, 0, &mapped);
        *data = mapped.pData;
        *pitch = mapped.RowPitch;
        return hr;
    }
    static void Unmap(Context*, Texture2D* texture) { texture->Unmap(0); }
    // Event queries: the frame fences.
    using Query = ID3D10Query;
    static HRESULT CreateEventQuery(Device* device, Query** out) {
        D3D10_QUERY_DESC desc{D3D10_QUERY_EVENT, 0};
        return device->CreateQuery(&desc, out);
    }
    static void EndQuery(Context*, Query* query) { query->End(); }
    // S_OK once the work before the query has been done, S_FALSE before.
    static HRESULT QueryDone(Context*, Query* query) {
        BOOL done = FALSE;
        return query->GetData(&done, sizeof done, 0);
    }
};

// Direct3D 11: creation on the device, drawing on the immediate context.
struct D3D11Api {
    ARD_D3D_SHARED_NAMES(D3D11)
    using Context = ID3D11DeviceContext;
    static constexpr const char* kName = "Direct3D 11";
    static constexpr const char* kNoWindow = "Direct3D 11 window creation failed!";
    static constexpr const char* kInitFailed = "D3D11 initialization failed!";

    static fur_d3d::PassTable Passes() { return fur_d3d::EntryPointPasses(); }

    // On `adapter`, or on the default one when it is null (an explicit
    // adapter takes the driver type "unknown").
    static HRESULT Create(IDXGIAdapter* adapter, DXGI_SWAP_CHAIN_DESC* sc, IDXGISwapChain** swapChain, Device** device,
                          Context** context) {
        const D3D_FEATURE_LEVEL levels[] = {D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_10_1, D3D_FEATURE_LEVEL_10_0};
        D3D_FEATURE_LEVEL got{};
        return D3D11CreateDeviceAndSwapChain(adapter, adapter ? D3D_DRIVER_TYPE_UNKNOWN : D3D_DRIVER_TYPE_HARDWARE,
                                             nullptr, 0, levels, 3, D3D11_SDK_VERSION, sc, swapChain, device, &got,
                                             context);
    }
    static HRESULT CreateShader(Device* device, const std::vector<unsigned char>& code, VertexShader** out) {
        return device->CreateVertexShader(code.data(), code.size(), nullptr, out);
    }
    static HRESULT CreateShader(Device* device, const std::vector<unsigned char>& code, PixelShader** out) {
        return device->CreatePixelShader(code.data(), code.size(), nullptr, out);
    }
    static void SetShaders(Context* context, VertexShader* vs, PixelShader* ps) {
        context->VSSetShader(vs, nullptr, 0);
        context->PSSetShader(ps, nullptr, 0);
    }
    static BlendDesc MakeBlend(const fur_d3d::BlendMode& m) {
        BlendDesc bd{};
        D3D11_RENDER_TARGET_BLEND_DESC& t = bd.RenderTarget[0];
        t.BlendEnable = m.enable;
        t.SrcBlend = Factor(m.src);
        t.DestBlend = Factor(m.dst);
        t.BlendOp = kBlendAdd;
        t.SrcBlendAlpha = Factor(m.srcAlpha);
        t.DestBlendAlpha = Factor(m.dstAlpha);
        t.BlendOpAlpha = kBlendAdd;
        t.RenderTargetWriteMask = kWriteAll;
        return bd;
    }
    static Viewport MakeViewport(int width, int height) {
        return Viewport{0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height), 0.0f, 1.0f};
    }
    static HRESULT MapDiscard(Context* context, Buffer* buffer, void** data) {
        D3D11_MAPPED_SUBRESOURCE mapped{};
        const HRESULT hr = context->Map(buffer, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped);
        *data = mapped.pData;
        return hr;
    }
    static void Unmap(Context* context, Buffer* buffer) { context->Unmap(buffer, 0); }
    static HRESULT MapRead(Context* context, Texture2D* texture, void** data, UINT* pitch) {
        D3D11_MAPPED_SUBRESOURCE mapped{};
        const HRESULT hr = context->Map(texture, 0, D3D11_MAP_READ, 0, &mapped);
        *data = mapped.pData;
        *pitch = mapped.RowPitch;
        return hr;
    }
    static void Unmap(Context* context, Texture2D* texture) { context->Unmap(texture, 0); }
    using Query = ID3D11Query;
    static HRESULT CreateEventQuery(Device* device, Query** out) {
        D3D11_QUERY_DESC desc{D3D11_QUERY_EVENT, 0};
        return device->CreateQuery(&desc, out);
    }
    static void EndQuery(Context* context, Query* query) { context->End(query); }
    static HRESULT QueryDone(Context* context, Query* query) {
        BOOL done = FALSE;
        return context->GetData(query, &done, sizeof done, 0);
    }
};

#undef ARD_D3D_SHARED_NAMES

namespace fur_d3d {

// Both APIs take Direct3D's common topology values.
inline D3D_PRIMITIVE_TOPOLOGY ToTopology(PaintPrimitive primitive) {
    switch (fur_d3d::TopologyOf(primitive)) {
        case fur_d3d::Topology::kTriangleList: break;
        case fur_d3d::Topology::kLineStrip: return D3D_PRIMITIVE_TOPOLOGY_LINESTRIP;
        case fur_d3d::Topology::kLineList: return D3D_PRIMITIVE_TOPOLOGY_LINELIST;
    }
    return D3D_PRIMITIVE_TOPOLOGY_TRIANGLELIST;
}

}  // namespace fur_d3d
