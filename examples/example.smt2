; An example script for tvx-trace: uninterpreted sorts and functions, integers and reals,
; bit-vectors and arrays, with definitions, let, named terms, backtrack points, checks under
; assumptions and value queries.
;
;   tvx-trace examples/example.smt2
;   tvx-trace --global-decls -o trace.smt2 examples/example.smt2
(set-logic ALL)
(set-option :produce-models true)

; Uninterpreted sorts and functions.
(declare-sort Pid 0)
(declare-fun owner (Pid) Pid)
(declare-const init Pid)
(declare-const worker Pid)
(assert (distinct init worker))
(assert (= (owner worker) init))

; Integers and reals; 1 and 3 become reals where a real is meant.
(declare-const budget Int)
(declare-const load Real)
(define-fun share ((n Int) (r Real)) Real (/ r n))
(assert (and (> budget 2) (< budget 10)))
(assert (= load (+ (share budget 3.0) 1)))

; Bit-vectors and arrays.
(declare-const flags (_ BitVec 8))
(declare-const table (Array (_ BitVec 8) Int))
(define-fun low-nibble ((b (_ BitVec 8))) (_ BitVec 4) ((_ extract 3 0) b))
(assert (= (low-nibble flags) #xA))
(assert (let ((slot (bvor flags #b00000001)))
          (= (select (store table slot budget) slot) (+ budget 0))))

(check-sat)
(get-value (budget load (low-nibble flags) (owner worker)))

; A scope: what is declared in it is gone after the pop.
(push 1)
(declare-const extra Int)
(assert (! (> extra budget) :named extra-bigger))
(assert (< extra 3))
(check-sat)
(pop 1)

; Checks under assumptions.
(declare-const fast Bool)
(declare-const safe Bool)
(assert (=> fast (< load 2.0)))
(assert (=> safe (> (* 2 budget) 8)))
(check-sat-assuming (fast safe))
(check-sat-assuming ((not fast) safe))
(get-value (fast safe (ite fast budget (- budget))))
(get-model)
(exit)
