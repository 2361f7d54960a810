(declare-const x (_ BitVec 100000000000))
(assert (= (_ bv5 10000000000000) x))
