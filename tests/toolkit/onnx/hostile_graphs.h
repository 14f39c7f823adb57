#pragma once

// Graphs that damaged files are made from: each uses other parts of the importer.

namespace marlo::toolkit::test {

inline constexpr const char* kGraphsToDamage[] = {
    R"(g (float[1,2,6,6] x) => (float[n,c,h,w] y)
      <float[3,2,3,3] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9,
                           1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9},
       float[3] s = {1, 2, 3}, int64[8] around = {0, 0, 1, 1, 0, 0, 1, 1}> {
    p = Pad(x, around)
    c = Conv<strides=[2, 2], pads=[1, 1, 1, 1]>(p, w)
    b = BatchNormalization(c, s, s, s, s)
    m = MaxPool<kernel_shape=[2, 2], ceil_mode=1>(b)
    a = AveragePool<kernel_shape=[3, 3], auto_pad="SAME_UPPER">(m)
    y = Relu(a)
  })",
    R"(g (float[1,3,4,5] x) => (float[1,2,8,10] y)
      <float[3,2,2,2] w = {1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8}> {
    c = ConvTranspose<strides=[2, 2]>(x, w)
    y = HardSigmoid<alpha=0.2>(c)
  })",
    R"(g (float[n,2,h,w] x) => (float[n,k] y) <int64[2] s = {1, -1}> {
    q = Shape(x)
    z = Constant<value_ints=[2]>()
    e = Constant<value_ints=[4]>()
    hw = Slice(q, z, e)
    d = Add(hw, hw)
    nc = Constant<value_ints=[1, 2]>()
    sizes = Concat<axis=0>(nc, d)
    u = Resize<mode="linear">(x, , , sizes)
    y = Reshape(u, s)
  })",
    R"(g (float[4,1,2] x) => (float[4,1,1,1] y)
      <float[1,4,2] w = {1, 2, 3, 4, 5, 6, 7, 8}, float[1,4,1] r = {1, 2, 3, 4}, float[1,8] b = {1, 2, 3, 4, 5, 6, 7, 8}> {
    y, h, c = LSTM<hidden_size=1>(x, w, r, b)
  })",
    R"(g (float[3,1,2] x) => (float[3,1,1,1] y)
      <float[1,3,2] w = {1, 2, 3, 4, 5, 6}, float[1,3,1] r = {1, 2, 3}> {
    y = GRU<hidden_size=1, linear_before_reset=0>(x, w, r)
  })",
    R"(g (float[1,3,4] x, float[1,4,5] z) => (float[a,b] y) <int64[1] k = {1}, float[2] v = {0, 1}> {
    e = Einsum<equation="bij,bjk->bik">(x, z)
    s = Softmax<axis=1>(e)
    t = Transpose<perm=[0, 2, 1]>(s)
    l, i = TopK<axis=1>(t, k)
    f = Round(t)
    o = OneHot<axis=1>(i, k, v)
    q = ReduceMean<axes=[1]>(f)
    y = Mul(q, l)
  })",
    R"(g (float[2,3] x) => (float[m,n] y) <int64[2] shape = {4, 6}, int64[2] times = {2, 2}, int64 axis = {1}, int64[2] indices = {0, -1}> {
    e = ConstantOfShape(shape)
    t = Tile(x, times)
    a = Add(t, e)
    c = CumSum(a, axis)
    g = Gather<axis=1>(a, indices)
    y = Concat<axis=1>(a, g)
  })",
    R"(g (float[1,4] x) => (float[1,4] y) <bool yes = {1}> {
    y = If (yes) <
      then_branch = a () => (float[1,4] p) { p = Neg(x) },
      else_branch = b () => (float[1,4] q) { q = Abs(x) }
    >
  })",
};

}  // namespace marlo::toolkit::test
